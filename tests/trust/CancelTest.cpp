// A thread that is cancelled ends, and the process goes on.

#include <thread>

#include <fcntl.h>
#include <pthread.h>

#include <gtest/gtest.h>

#include "wire/Descriptor.h"

TEST(Cancel, WaitsForTheEndOfADestructor)
{
    bool l_bClosed = false;
    std::thread l_Thread([&l_bClosed] {
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        pthread_cancel(pthread_self());
        {
            const wire::CDescriptor l_File(open("/dev/null", O_RDONLY));
            pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
        }
        l_bClosed = true;
        pthread_testcancel();
        l_bClosed = false;
    });
    l_Thread.join();
    EXPECT_TRUE(l_bClosed);
}
