// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <array>
#include <utility>
#include <vector>

#include "RandomSteps.h"
#include "replay/Spool.h"
#include "replay/Stop.h"

namespace corvane::replay {
namespace {

using Record = std::array<int64_t, 26>;  // few to a block, of which some is left over

// Two spools, whose blocks are in one file, beside vectors. In the end the disk is full.
TEST(Spool, HoldsWhatAVectorWould) {
    signal(SIGXFSZ, SIG_IGN);
    android::RandomStepsRunner::run(40, 200, [](android::RandomSteps& steps) {
        std::pair<Spool<Record>, std::vector<Record>> both[2];
        const auto push = [](auto& spool, auto& expected, size_t count, int64_t value) {
            expected.insert(expected.end(), count, {value});
            while (count-- > 0) spool.push_back({value});
        };
        while (steps.next()) {
            auto& [spool, expected] = both[steps.below(2)];
            push(spool, expected, steps.oneIn(10) ? steps.below(80) : 1, steps.below(1'000));
            const auto any = static_cast<size_t>(steps.below(1'000)) % (expected.size() + 1);
            if (any < expected.size()) spool.set(any, expected[any] = {-steps.below(1'000)});
            if (steps.oneIn(20)) spool = Spool<Record>(std::move(spool));
            if (steps.oneIn(50)) spool = {}, expected = {};
            steps.expectEq(expected.empty(), spool.empty(), "emptiness");
            if (expected.empty() || steps.oneIn(2)) continue;
            steps.expectEq(expected.back(), spool.back(), "the last");
            std::vector<Record> all;
            for (const Record record : spool) all.push_back(record);
            steps.expectEq(expected, all, "all");
        }
        const rlimit full{0, RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &full);
        auto& [spool, expected] = both[0];
        push(spool, expected, 2 * Spool<Record>::kBlockRecords, 1);
        EXPECT_EQ(spool.back(), expected.back());
        for (int i = 0; i < 2; ++i) EXPECT_THROW(spool[expected.size() - 20], Stop);
    });
}

}  // namespace
}  // namespace corvane::replay
