// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace corvane::replay {

// Cuts a trace, which comes in pieces of any size, into its packets. The bytes may be anything at
// all. Keeps no more than one packet. Used from one thread.
class PacketStream {
  public:
    // Larger packets are passed over. Those that are of use here have some kilobytes; a packet that
    // bundles compressed ones may have half a megabyte.
    static constexpr uint64_t kMaxPacket = 16ULL << 20;

    // A packet's bytes are valid until the sink returns.
    using Sink = std::function<void(std::string_view packet)>;

    explicit PacketStream(Sink sink) : mSink(std::move(sink)) {}

    void feed(std::string_view piece);
    // No more pieces come.
    void finish();

    size_t packets() const { return mPackets; }
    // Passed over for their size.
    size_t oversized() const { return mOversized; }
    // The bytes end within a packet, or claim one beyond their end.
    bool isCutShort() const { return mCutShort; }
    // From some byte on this is no trace: nothing behind it was read.
    bool isBroken() const { return mBroken; }

  private:
    size_t consume(std::string_view bytes);

    const Sink mSink;
    std::string mRest;    // a packet whose end has not come yet
    size_t mMissing = 0;  // bytes to come before mRest may be whole
    uint64_t mSkip = 0;   // bytes of an oversized packet that have not come yet
    size_t mPackets = 0;
    size_t mOversized = 0;
    bool mCutShort = false;
    bool mBroken = false;
};

}  // namespace corvane::replay
