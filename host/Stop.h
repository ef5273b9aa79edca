/**
 * @file Stop.h
 * @brief The wish to stop, and calls that wait no longer than half a second once it is there.
 *
 * A call of the library may wait for a device for many seconds and has no way to be cut short. So
 * those calls run on a thread of their own. When a signal asks to stop, the main thread gives the call
 * a moment to end and then leaves it to itself: files and devices are put in order, and the process
 * ends without waiting for it.
 */
#pragma once

#include <chrono>
#include <functional>

namespace host {

/** From here on SIGINT, SIGTERM and SIGHUP no longer end the process: they are noted. */
void CatchStopSignals();

/** Number of the signal that asked to stop, 0 while there was none. */
int StopSignal();

/** How many signals asked to stop. */
int StopSignals();

/** Sleeps, but not past a signal to stop. */
void SleepUnlessStopped(std::chrono::milliseconds i_Time);

/** A call was left to itself because a signal asked to stop. */
struct S_STOPPED
{
};

/**
 * Runs an operation and waits for its end; what it throws is thrown here.
 *
 * @param i_fnOperation must own what it touches: it may still run when everything of its caller is
 *                      gone.
 * @param i_fnTick      called about ten times a second meanwhile; may be empty.
 * @throws S_STOPPED    once a signal asked to stop and the operation did not end soon after.
 */
void Call(const std::function<void()>& i_fnOperation, const std::function<void()>& i_fnTick = {});

/** As Call(), for what must not stop half way: it goes on after a first signal, and only a second one
 *  leaves it. */
void CallToTheEnd(const std::function<void()>& i_fnOperation,
                  const std::function<void()>& i_fnTick = {});

/** As Call(), but only a signal that comes from now on leaves it: for what is made of the results once an
 *  acquisition was stopped. */
void CallAfterStop(const std::function<void()>& i_fnOperation);

/** From here on calls are left to themselves as if a signal asked to stop. Any thread. */
void LeaveCalls();

/** Whether a call still runs that nobody waits for. The process must then end at once, by _exit. */
bool IsCallLeft();

} // namespace host
