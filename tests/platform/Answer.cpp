/** The one entry point of the library that the tests load. */
extern "C" __attribute__((visibility("default"))) int Answer()
{
    return 42;
}
