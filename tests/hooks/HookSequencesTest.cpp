// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The fuzz target of hook sequences as an ordinary test: its seeds, and random variations of them.
//
// HOOK_SEQUENCES=<folder> takes other seeds. With what a fuzzing run has found, the build with the
// thread sanitizer and --gtest_repeat, this looks for races as deep as the fuzzer got: clang's
// coverage counters themselves race, so that no fuzzer can run with that sanitizer.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "corvane/host/LogCapture.h"

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace corvane::host {
namespace {

class HookSequencesTest : public ::testing::Test {
  protected:
    void SetUp() override {
        LLVMFuzzerInitialize(nullptr, nullptr);
        const char* other = getenv("HOOK_SEQUENCES");
        const char* folder = other == nullptr ? HOOK_SEQUENCES_CORPUS : other;
        for (const auto& file : std::filesystem::directory_iterator(folder)) {
            std::ifstream stream(file.path(), std::ios::binary);
            mSeeds.emplace_back(std::istreambuf_iterator<char>(stream),
                                std::istreambuf_iterator<char>());
        }
        std::sort(mSeeds.begin(), mSeeds.end());
        ASSERT_FALSE(mSeeds.empty());
    }
    static void run(const std::string& program) {
        SCOPED_TRACE(program);
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(program.data()), program.size());
    }

    std::vector<std::string> mSeeds;
};

// Whatever the variations below start from must be worth it. Threads that meet differently reach
// different states, so what one round misses another may reach.
TEST_F(HookSequencesTest, SeedsReachEveryFeature) {
    std::vector<std::string> missing = {": enable PHR",
                                        "additional delay",
                                        "enable target fps: 30",
                                        "updateLayerTunables layer",
                                        "CheckMultiLayer: 3",
                                        "[GPU JANK DETECTION] IOCTL failed",
                                        "SetLowLatency true",
                                        "Candidate layer count dropped",
                                        "set desiredPresentTime for this frame"};
    const LogCapture log;
    for (int round = 0; round < 20 && !missing.empty(); ++round) {
        for (const std::string& seed : mSeeds) run(seed);
        missing.erase(std::remove_if(missing.begin(), missing.end(),
                                     [&](const std::string& text) { return log.count(text) > 0; }),
                      missing.end());
    }
    EXPECT_EQ(missing, std::vector<std::string>{});
}

// The seeds' lines in any order, some of their bytes changed, some calls on the other thread.
TEST_F(HookSequencesTest, VariedSeeds) {
    std::vector<std::string> lines;
    for (const std::string& seed : mSeeds) {
        run(seed);
        for (size_t begin = 0; begin < seed.size();) {
            const size_t end = std::min(seed.find('\n', begin), seed.size());
            lines.push_back(seed.substr(begin, end - begin));
            begin = end + 1;
        }
    }
    constexpr int kPrograms = 80;
    constexpr int kLinesEach = 12;
    static std::mt19937 random(1);  // repetitions go on from there
    for (int i = 0; i < kPrograms; ++i) {
        std::string program;
        for (int j = 0; j < kLinesEach; ++j) program += lines[random() % lines.size()] + '\n';
        for (size_t changes = program.size() / 8; changes > 0; --changes) {
            char& c = program[random() % program.size()];
            if (isalpha(static_cast<unsigned char>(c)) != 0) {
                c ^= 'a' ^ 'A';
            } else if (random() % 4 == 0) {
                c = static_cast<char>(random());
            }
        }
        run(program);
    }
}

}  // namespace
}  // namespace corvane::host
