/**
 * @file Seams.h
 * @brief The calls by which a process asks the system for something, each of which can be made to fail.
 *
 * Seams.cpp puts itself before the system's libraries. What it counts and fails are the calls of the
 * threads that are told to count, and of the threads that those start.
 */
#pragma once

#include <cstdint>

enum class E_SEAM : uint8_t
{
    Memory,     /**< malloc, calloc, realloc, new */
    Library,    /**< dlopen */
    EntryPoint, /**< dlsym */
    Open,       /**< open, eventfd, mmap */
    Read,
    Write,
    Poll,
    Thread,
    Process
};

/**
 * From here on the nth call fails, once; 0: none does. Waits and sleeps are cut short.
 *
 * @param i_bThreads whether the calls of the threads that are started count as well.
 */
void OpenSeams(E_SEAM i_eSeam, uint32_t i_ulNth, bool i_bThreads);
/** Whether the calls of this thread count. */
void CountThisThread(bool i_bCounted);
/** @return whether the call was reached. */
bool CloseSeams();
/** Whether the call has failed by now. */
bool HasFailed();
/** Heap blocks now alive in the process. */
int64_t LiveBlocks();
