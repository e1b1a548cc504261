// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <json/json.h>

#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>

namespace corvane::replay {

// A JSON document that is written while it is made, since a report of hours lists millions of
// frames. Objects and lists that are opened here have a member or an element on each line,
// indented; every value is written whole on its line. Used from one thread.
class JsonStream {
  public:
    // Gets the document in pieces.
    using Sink = std::function<void(std::string_view piece)>;

    explicit JsonStream(Sink sink);
    ~JsonStream() { flush(); }
    JsonStream(const JsonStream&) = delete;
    JsonStream& operator=(const JsonStream&) = delete;

    // The document itself and the elements of lists have no key. Names of keys are ours.
    void beginObject(const char* key = nullptr) { begin('{', key); }
    void endObject() { end('}'); }
    void beginList(const char* key = nullptr) { begin('[', key); }
    void endList() { end(']'); }
    void member(const char* key, const Json::Value& value);
    void element(const Json::Value& value) { member(nullptr, value); }

  private:
    void begin(char bracket, const char* key);
    void end(char bracket);
    void nextLine(const char* key);
    void flush();

    const Sink mSink;
    const std::unique_ptr<Json::StreamWriter> mWriter;
    std::ostringstream mPiece;
    size_t mDepth = 0;
    bool mIsFirst = true;  // nothing is in the innermost object or list yet
};

}  // namespace corvane::replay
