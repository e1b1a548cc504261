// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

namespace android {

// Calls `callback` with the new value whenever the boolean property flips, on a thread of its own
// that lives as long as the process. `current` is the value that the caller has read and acts upon:
// were it read again here, a flip in between would be lost on both. Only the texts "0" and "1" flip
// it: whoever switches smart touch at run time writes those, while the value at the start may be
// spelled in any way.
//
// Throws std::system_error when the thread cannot be created.
void propertyMonitor(const std::string& name, bool current, void (*callback)(bool));

// Smart touch was switched.
void onSTPropChanged(bool value);

// Smart touch's decisions on moves were switched, in an application's process.
void onSTMPropChanged(bool value);

}  // namespace android
