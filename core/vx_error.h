// SPDX-License-Identifier: MIT
//
// The current error: a per-thread record of the last error that was set or captured.
//
// It has a code, a context (the operation that failed) and a message. It remains until it is
// replaced or cleared; reading does not change it. Each thread has its own record, which is
// destroyed with the thread's other thread-local objects. Destructors that run after that, such as
// those of static objects, see no error at first and may set one.
//
// The functions are thread-safe and do not log. The only failure is running out of memory.

#pragma once

#include "core/vx_string.h"

namespace vx::os {

/// Replaces the current error. Code 0 means that there is no system error code.
void setCurrentError(long long code, String context, String message);

/// Replaces the current error with the system's last error: `errno` as the code, `operation` as the
/// context, and the system's message for the code (strerror_r).
///
///   captureCurrentError("mkDir")  => {EEXIST, "mkDir", "File exists"} if errno is EEXIST
///                                    {0, "mkDir", ""} if errno is 0
///
/// A successful system call does not reset `errno`, so call `clearCurrentError` before it.
/// Construct the argument before the system call too, because constructing it may change `errno`.
void captureCurrentError(String operation);

/// Resets the current error to no error (code 0, empty strings) and `errno` to 0.
void clearCurrentError();

/// Returns the code of the current error, 0 if there is none.
[[nodiscard]] long long currentErrorCode() noexcept;

/// Returns the context of the current error, empty if there is none.
[[nodiscard]] String currentErrorContext() noexcept;

/// Returns the message of the current error, empty if there is none.
[[nodiscard]] String currentErrorMessage() noexcept;

}  // namespace vx::os
