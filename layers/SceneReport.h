// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

#include "layers/LayerSelection.h"

namespace android {

// The visible applications as the performance service reads them: one line of JSON, its newline
// included. What would make it longer than the service accepts is left out, application by
// application from the end. Names are the applications' own; whatever their bytes, the text is
// valid JSON in plain ASCII.
std::string buildSceneReport(const LayerList& apps);

}  // namespace android
