// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/Conversion.h"

#include <cmath>
#include <cstdlib>
#include <set>
#include <utility>

#include "replay/OutputFile.h"
#include "replay/Stop.h"
#include "replay/TextTable.h"
#include "replay/TraceReader.h"

namespace corvane::replay {

const char* const kConversionUsage =
        "usage: corvane-convert [OPTIONS] INPUT OUTPUT\n"
        "\n"
        "Writes a recording in another format, a part of it, or without the names of what it "
        "shows.\n"
        "INPUT is ftrace text, a systrace page or a Perfetto trace, also packed by gzip. OUTPUT's\n"
        "ending names its format: .txt, .html, .pftrace or .perfetto-trace, and .gz behind any of\n"
        "them. Slices, counters and (in Perfetto's format) frame timelines are kept.\n"
        "\n"
        "  --from SECONDS    from here on, counted from the first event in the file\n"
        "  --to SECONDS      and to here\n"
        "  --rename OLD=NEW  replace this text in every name, as often as given\n"
        "  --mask            replace all names, one always by the same; layers keep their form\n"
        "  --format FORMAT   text, html or perfetto: needed where OUTPUT's ending does not tell\n"
        "  --help            this text\n"
        "\n"
        "INPUT and OUTPUT may be -, for standard input and output.\n"
        "\n"
        "Exit status: 0 written, 1 the output failed, 2 the command line or the recording is not\n"
        "usable.\n";

namespace {

constexpr double kNsPerSecond = 1e9;
// Longer than any trace.
constexpr double kMaxSeconds = 1e8;

std::optional<int64_t> parseSeconds(const std::string& text) {
    char* end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !(seconds >= 0.0 && seconds <= kMaxSeconds)) {
        return std::nullopt;
    }
    return std::llround(seconds * kNsPerSecond);
}

std::optional<TraceFormat> formatNamed(const std::string& name) {
    if (name == "text") return TraceFormat::kText;
    if (name == "html") return TraceFormat::kPage;
    if (name == "perfetto") return TraceFormat::kPerfetto;
    return std::nullopt;
}

// Takes an option with a value. Returns what is wrong with it, or an empty text.
std::string takeOption(const std::string& name, const std::string& value,
                       ConversionOptions& options, std::optional<TraceFormat>& format) {
    if (name == "--format") {
        format = formatNamed(value);
        return format ? "" : "--format takes text, html or perfetto";
    }
    if (name == "--rename") {
        const size_t equals = value.find('=');
        if (equals == 0 || equals == std::string::npos) return "--rename takes OLD=NEW";
        options.names.rename(value.substr(0, equals), value.substr(equals + 1));
        return "";
    }
    const auto timeNs = parseSeconds(value);
    if (!timeNs) return name + " takes seconds, such as 1.5";
    if (name == "--from") options.fromNs = *timeNs;
    if (name == "--to") options.toNs = *timeNs;
    return "";
}

// Passes on what lies within the part, under its new names.
class Converter {
  public:
    Converter(ConversionOptions& options, TraceFileWriter& writer)
          : mOptions(options), mWriter(writer) {}

    void add(TraceEvent event) {
        if (!isWithin(event.timeNs)) return;
        const std::string name = mOptions.names.marker(event.name);
        if (!event.name.empty()) event.name = name;
        const std::string task = mOptions.names.thread(event.task);
        event.task = task;
        mWriter.event(event);
        ++mWritten;
    }

    void add(FrameMark mark) {
        if (!isWithin(mark.timeNs)) return;
        if (mark.kind == FrameMark::Kind::kEnd) {
            if (mBegun.erase(mark.cookie) == 0) return;
        } else if (mBegun.size() < kMaxBegun) {
            mBegun.insert(mark.cookie);
        }
        std::string name;
        if (!mark.layer.empty()) name = mOptions.names.marker(mark.layer);
        mark.layer = name;
        mWriter.frame(mark);
        ++mWritten;
    }

    size_t written() const { return mWritten; }

  private:
    // Slices of the frame timeline that are open at a time are some hundred.
    static constexpr size_t kMaxBegun = 100'000;

    bool isWithin(int64_t timeNs) {
        if (!mStartNs) mStartNs = timeNs;
        const int64_t sinceNs = timeNs - *mStartNs;
        // The first line need not be the earliest: without --from nothing is too early.
        const bool isEarly = mOptions.fromNs > 0 && sinceNs < mOptions.fromNs;
        return !isEarly && (!mOptions.toNs || sinceNs <= *mOptions.toNs);
    }

    ConversionOptions& mOptions;
    TraceFileWriter& mWriter;
    std::optional<int64_t> mStartNs;
    std::set<int64_t> mBegun;  // cookies
    size_t mWritten = 0;
};

}  // namespace

ConversionOptionsResult parseConversionOptions(int argc, const char* const* argv) {
    constexpr const char* kSeeHelp = " (--help lists the options)";
    ConversionOptions options;
    std::optional<TraceFormat> format;
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--help") {
            options.help = true;
            return {std::move(options), ""};
        }
        if (argument == "--mask") {
            options.names.maskAll();
        } else if (argument == "--from" || argument == "--to" || argument == "--rename" ||
                   argument == "--format") {
            if (++i == argc) return {std::nullopt, argument + " needs a value" + kSeeHelp};
            std::string error = takeOption(argument, argv[i], options, format);
            if (!error.empty()) return {std::nullopt, std::move(error)};
        } else if (argument.size() > 1 && argument.front() == '-') {
            return {std::nullopt, "unknown option '" + argument + "'" + kSeeHelp};
        } else {
            files.push_back(argument);
        }
    }
    if (files.size() != 2) {
        return {std::nullopt, std::string("needs an input and an output") + kSeeHelp};
    }
    if (options.toNs && *options.toNs < options.fromNs) {
        return {std::nullopt, "--to is before --from"};
    }
    options.input = files[0];
    options.output = files[1];
    if (!format) format = formatOfName(options.output);
    if (!format) {
        return {std::nullopt, "what format is " + options.output +
                                      "? Its ending is none of .txt, .html, .pftrace and "
                                      ".perfetto-trace; --format says it"};
    }
    options.format = *format;
    return {std::move(options), ""};
}

std::vector<std::string> convert(ConversionOptions options) {
    refuseClashes({options.input}, {options.output});
    TraceFileWriter writer(options.output, options.format);
    Converter converter(options, writer);
    TraceReader reader([&](const TraceEvent& event) { converter.add(event); },
                       [&](const FrameMark& mark) { converter.add(mark); });
    const std::string error = reader.read(options.input);
    if (!error.empty()) throw Stop{kUnusable, options.input + " " + error};
    writer.finish();
    if (converter.written() == 0) {
        throw Stop{kUnusable, options.input + " holds no slices, counters or frames" +
                                      (reader.stats().ftrace > 0 ? " in this part" : "")};
    }
    std::vector<std::string> notes = reader.notes();
    if (writer.framesLeftOut() > 0) {
        notes.push_back(plural(writer.framesLeftOut(), "frame timeline mark") +
                        " left out: text has no form for them.");
    }
    return notes;
}

}  // namespace corvane::replay
