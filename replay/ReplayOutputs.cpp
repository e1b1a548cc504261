// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/ReplayOutputs.h"

#include <cstdio>
#include <string>
#include <string_view>

#include "replay/HtmlReport.h"
#include "replay/ReplayTrace.h"
#include "replay/Stop.h"
#include "replay/TraceFormat.h"

namespace corvane::replay {
namespace {

// Null for an empty path. A file whose name does not tell its format is text.
std::unique_ptr<TraceFileWriter> openTrace(const std::string& path) {
    if (path.empty()) return nullptr;
    return std::make_unique<TraceFileWriter>(path, formatOfName(path).value_or(TraceFormat::kText));
}

}  // namespace

ReplayOutputs::ReplayOutputs(const Options& options)
      : mJson(options.json),
        mPage(options.report),
        mTrace(openTrace(options.trace)),
        mText(kStandardStream),
        mTextIsApart(isTextApart(options)) {}

bool ReplayOutputs::isTextApart(const Options& options) {
    return options.json == kStandardStream || options.report == kStandardStream ||
           options.trace == kStandardStream;
}

void ReplayOutputs::write(const ReportSource& source, const LibraryTrace& trace) {
    std::string failures;
    const auto note = [&](const std::string& failure) {
        if (!failure.empty()) failures += (failures.empty() ? "" : "; ") + failure;
    };
    if (mTrace) {
        try {
            mTrace->write(replayEvents(source, trace), replayTracks(source, trace));
            mTrace->finish();
        } catch (const Stop& stop) {
            note(stop.sentence);
        }
    }
    if (mJson.isOpen()) {
        writeJsonReport(source, [this](std::string_view piece) { mJson.write(piece); });
        note(mJson.finish());
    }
    if (mPage.isOpen()) {
        writeHtmlReport(source, [this](std::string_view piece) { mPage.write(piece); });
        note(mPage.finish());
    }
    if (mTextIsApart) {
        std::fputs(textReport(source).c_str(), stderr);
    } else {
        note(mText.finish(textReport(source)));
    }
    if (!failures.empty()) throw Stop{kFailed, failures};
}

}  // namespace corvane::replay
