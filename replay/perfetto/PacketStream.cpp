// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/perfetto/PacketStream.h"

#include <algorithm>
#include <optional>

namespace corvane::replay {
namespace {

constexpr uint64_t kPacketTag = 1U << 3U | 2U;  // field 1, a length and its bytes
constexpr size_t kMaxVarint = 10;

enum WireType : unsigned { kVarint = 0, kFixed64 = 1, kBytes = 2, kFixed32 = 5 };

// One field of the outermost message.
struct Field {
    enum class State { kWhole, kBegun, kBroken } state;
    bool isPacket = false;
    size_t header = 0;  // bytes before the body
    uint64_t body = 0;
};

// Takes the number at the front of `bytes`; nothing when it is not whole.
std::optional<uint64_t> takeVarint(std::string_view& bytes) {
    uint64_t value = 0;
    const size_t most = std::min(bytes.size(), kMaxVarint);
    for (size_t i = 0; i < most; ++i) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        value |= static_cast<uint64_t>(byte & 0x7fU) << (7 * i);
        if (byte < 0x80U) {
            bytes.remove_prefix(i + 1);
            return value;
        }
    }
    return std::nullopt;
}

Field firstField(std::string_view bytes) {
    // Without a whole number: it goes on in the next piece, or is none.
    const auto unfinished = [&] {
        return Field{bytes.size() < kMaxVarint ? Field::State::kBegun : Field::State::kBroken};
    };
    const size_t size = bytes.size();
    const auto tag = takeVarint(bytes);
    if (!tag) return unfinished();
    if (*tag >> 3U == 0) return {Field::State::kBroken};
    Field field{Field::State::kWhole};
    switch (static_cast<unsigned>(*tag & 7U)) {
        case kVarint:
            if (!takeVarint(bytes)) return unfinished();
            break;
        case kFixed64:
            field.body = 8;
            break;
        case kFixed32:
            field.body = 4;
            break;
        case kBytes: {
            const auto length = takeVarint(bytes);
            if (!length) return unfinished();
            field.body = *length;
            break;
        }
        default:
            return {Field::State::kBroken};
    }
    field.isPacket = *tag == kPacketTag;
    field.header = size - bytes.size();
    return field;
}

}  // namespace

void PacketStream::feed(std::string_view piece) {
    while (!piece.empty() && !mBroken) {
        if (mSkip > 0) {
            const auto count = static_cast<size_t>(std::min<uint64_t>(mSkip, piece.size()));
            mSkip -= count;
            piece.remove_prefix(count);
        } else if (mRest.empty()) {
            piece.remove_prefix(consume(piece));
            if (mSkip > 0 || mBroken) continue;
            mRest = piece;
            return;
        } else {
            const size_t count = std::min(mMissing, piece.size());
            mRest += piece.substr(0, count);
            piece.remove_prefix(count);
            mMissing -= count;
            // What is missing was counted, so that this takes all or nothing.
            if (mMissing == 0 && consume(mRest) > 0) mRest.clear();
        }
    }
}

void PacketStream::finish() {
    if (!mBroken && (!mRest.empty() || mSkip > 0)) mCutShort = true;
    mRest.clear();
    mSkip = 0;
}

// Hands on the packets that are whole and returns how many bytes that took. Of the rest, tells what
// is missing.
size_t PacketStream::consume(std::string_view bytes) {
    size_t used = 0;
    while (used < bytes.size()) {
        const std::string_view rest = bytes.substr(used);
        const Field field = firstField(rest);
        if (field.state == Field::State::kBroken) {
            mBroken = true;
            break;
        }
        mMissing = 1;
        if (field.state == Field::State::kBegun) break;
        const size_t there = rest.size() - field.header;
        if (!field.isPacket || field.body > kMaxPacket) {
            if (field.isPacket) ++mOversized;
            const auto skipped = std::min<uint64_t>(field.body, there);
            mSkip = field.body - skipped;
            used += field.header + static_cast<size_t>(skipped);
        } else if (field.body > there) {
            mMissing = static_cast<size_t>(field.body) - there;
            break;
        } else {
            ++mPackets;
            mSink(rest.substr(field.header, static_cast<size_t>(field.body)));
            used += field.header + static_cast<size_t>(field.body);
        }
    }
    return used;
}

}  // namespace corvane::replay
