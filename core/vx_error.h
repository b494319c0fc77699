// The current error: the record of the last failure that was set or captured on this thread.
//
// It holds a code, a context (the operation that failed) and a message. It persists until it is
// replaced or cleared; reading it changes nothing. Each thread has its own, as with `errno`, which
// ends with it: destructors that run later, as those of static objects do, find no error at first.
// Nothing here fails or logs.

#pragma once

#include "core/vx_string.h"

namespace vx::os {

/// Replaces the current error. Code 0 stands for an error without a code of the system.
void setCurrentError(long long code, String context, String message);

/// Records the system's last error, `errno` as the call just made has left it, with the system's
/// text for it as the message (strerror_r).
///
/// `errno` 0 records code 0 and no message, which is what a call that did not fail leaves after
/// `clearCurrentError`. The argument must be a finished `String`: making one may change `errno`.
void captureCurrentError(String operation);

/// Resets the record to no error, code 0 and empty texts, and `errno` to 0.
void clearCurrentError();

/// The code of the current error, 0 where there is none.
[[nodiscard]] long long currentErrorCode() noexcept;

/// The operation that failed, empty where there is no error.
[[nodiscard]] String currentErrorContext() noexcept;

/// The message of the current error, empty where there is none.
[[nodiscard]] String currentErrorMessage() noexcept;

}  // namespace vx::os
