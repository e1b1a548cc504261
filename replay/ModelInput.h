// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "model/Recorded.h"
#include "replay/Recording.h"

namespace corvane::replay {

// The recording in the model's terms; layers keep their indices.
model::Recorded modelInput(const Recording& recording);

}  // namespace corvane::replay
