// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/JsonStream.h"

#include <utility>

namespace corvane::replay {
namespace {

constexpr std::streamoff kPieceBytes = 65'536;

Json::StreamWriter* oneLineWriter() {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return builder.newStreamWriter();
}

}  // namespace

JsonStream::JsonStream(Sink sink) : mSink(std::move(sink)), mWriter(oneLineWriter()) {}

void JsonStream::nextLine(const char* key) {
    if (mDepth > 0) {
        mPiece << (mIsFirst ? "\n" : ",\n");
        for (size_t i = 0; i < mDepth; ++i) mPiece << "  ";
    }
    if (key != nullptr) mPiece << '"' << key << "\": ";
    mIsFirst = false;
}

void JsonStream::member(const char* key, const Json::Value& value) {
    nextLine(key);
    mWriter->write(value, &mPiece);
    if (mPiece.tellp() >= kPieceBytes) flush();
}

void JsonStream::begin(char bracket, const char* key) {
    nextLine(key);
    mPiece << bracket;
    mIsFirst = true;
    ++mDepth;
}

void JsonStream::end(char bracket) {
    --mDepth;
    if (!mIsFirst) {
        mPiece << '\n';
        for (size_t i = 0; i < mDepth; ++i) mPiece << "  ";
    }
    mPiece << bracket;
    mIsFirst = false;
    if (mDepth == 0) mPiece << '\n';
}

void JsonStream::flush() {
    mSink(mPiece.str());
    mPiece.str({});
}

}  // namespace corvane::replay
