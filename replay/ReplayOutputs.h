// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <memory>

#include "replay/LibraryTrace.h"
#include "replay/Options.h"
#include "replay/OutputFile.h"
#include "replay/Report.h"
#include "replay/TraceFileWriter.h"

namespace corvane::replay {

// Where the report goes. Each file is opened before the recording is played, so that nobody waits
// for a report that has no place. Throws Stop when one cannot be.
class ReplayOutputs {
  public:
    explicit ReplayOutputs(const Options& options);

    // A document takes standard output whole; the text is then on standard error.
    static bool isTextApart(const Options& options);
    bool isTextApart() const { return mTextIsApart; }

    // Some output lists each frame.
    bool hasDocuments() const { return mJson.isOpen() || mPage.isOpen() || mTrace != nullptr; }

    // Every output is tried, whatever became of the ones before. Throws Stop with what failed.
    void write(const ReportSource& source, const LibraryTrace& trace);

  private:
    OutputFile mJson;
    OutputFile mPage;
    const std::unique_ptr<TraceFileWriter> mTrace;  // null: none is kept
    OutputFile mText;
    const bool mTextIsApart;
};

}  // namespace corvane::replay
