/**
 * @file Roads.h
 * @brief Whole roads that users travel, each measured in a process of its own.
 */
#pragma once

#include <span>

/** One road. A measure throws std::runtime_error if the road does not end well. */
struct S_ROAD
{
    const char* pszName;
    const char* pszUnit;
    const char* pszWork; /**< for a reader, and whether it is the first use in a process */
    double (*pfnMeasure)();
};

std::span<const S_ROAD> Roads();
