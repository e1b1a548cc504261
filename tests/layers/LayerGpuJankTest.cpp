// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Unsignalled GPU fences, against emulated sync files.

#include <errno.h>
#include <unistd.h>

#include "RegistryTest.h"
#include "corvane/host/Devices.h"

namespace android {
namespace {

using corvane::host::SyncFiles;

class LayerGpuJankTest : public RegistryTest {
  protected:
    void setProperties() override {
        base::SetProperty("vendor.perf.gpu_jank_detect.enable", "true");
        base::SetProperty("vendor.perf.gpu_jank_filter.min_exec_time_mult", "1.5");
    }

    void SetUp() override {
        RegistryTest::SetUp();
        manager().setVsyncPeriod(k60Hz);
        track(1);
    }
    void TearDown() override {
        for (const int fd : mFences) close(fd);
    }

    int fence(const std::string& name) {
        mFences.push_back(SyncFiles::create(name));
        return mFences.back();
    }
    // A frame whose GPU work has been going on for two periods.
    void drawOldFrame(int id = 1) {
        mSimulation.advance(k60Hz);
        queue(id);
        mSimulation.advance(2 * k60Hz);
    }
    static std::vector<int> deadlines() {
        std::vector<int> fds;
        for (const auto& deadline : SyncFiles::deadlines()) {
            EXPECT_EQ(deadline.deadlineNs, 0u);
            fds.push_back(deadline.fd);
        }
        return fds;
    }

    std::vector<int> mFences;
};

using Fds = std::vector<int>;

TEST_F(LayerGpuJankTest, ActsOnTheGpuDriversFencesOnly) {
    drawOldFrame();
    // What is asked of a fence may fail, and a detached one tells nothing: both pass, uncached.
    const int detached = fence("detached");
    manager().notifyGpuFenceUnsignaled(detached, 1);
    SyncFiles::failInfo(ENOTTY);
    manager().notifyGpuFenceUnsignaled(detached, 1);
    SyncFiles::failInfo(0);
    EXPECT_EQ(deadlines(), (Fds{detached, detached}));
    EXPECT_EQ(mLog.count("detached (not cached)"), 1u);
    EXPECT_EQ(mLog.count("SYNC_IOC_FILE_INFO failed, ret=-1, fd=" + std::to_string(detached) +
                         ", errno=" + std::to_string(ENOTTY)),
              1u);
    EXPECT_EQ(SyncFiles::infoCount(), 2);

    manager().notifyGpuFenceUnsignaled(fence("camera-mdrt-timeline-detached"), 1);
    manager().notifyGpuFenceUnsignaled(fence("mdrt-timeline"), 1);
    manager().trackLatchUnsignaledGpuFence(fence("mdrt-timeline"), 1);
    manager().flushLatchUnsignaledGpuFences();
    EXPECT_EQ(deadlines().size(), 2u);
    EXPECT_EQ(mLog.count("non-mdrt (cached)"), 1u);
    EXPECT_EQ(SyncFiles::infoCount(), 3) << "the layer's origin is settled";

    track(2);
    drawOldFrame(2);
    const int gpu = fence("mdrt-timeline-42");
    manager().notifyGpuFenceUnsignaled(gpu, 2);
    manager().notifyGpuFenceUnsignaled(gpu, 2);
    EXPECT_EQ(deadlines(), (Fds{detached, detached, gpu, gpu}));
    EXPECT_EQ(SyncFiles::infoCount(), 4);
    track(3);
    for (const int id : {2, 3}) drawOldFrame(id);
    const int third = fence("mdrt-timeline");
    manager().trackLatchUnsignaledGpuFence(third, 3);
    manager().trackLatchUnsignaledGpuFence(gpu, 2);
    manager().flushLatchUnsignaledGpuFences();
    EXPECT_EQ(deadlines(), (Fds{detached, detached, gpu, gpu, gpu, third})) << "by layer";
    EXPECT_EQ(mLog.count("[GPU JANK DETECTION] fence origin: mdrt (cached), layerId=2 "
                         "[com.example.app2/Main#2] fence_name=mdrt-timeline-42"),
              1u);
}

TEST_F(LayerGpuJankTest, FlushesEachRecordOnce) {
    drawOldFrame();
    const int first = fence("mdrt-timeline");
    const int second = fence("mdrt-timeline");
    manager().trackLatchUnsignaledGpuFence(first, 1);
    manager().trackLatchUnsignaledGpuFence(second, 1);
    latch(1);  // the record survives the latch
    manager().trackLatchUnsignaledGpuFence(second, 99);
    EXPECT_EQ(deadlines(), Fds{});
    manager().flushLatchUnsignaledGpuFences();
    manager().flushLatchUnsignaledGpuFences();
    EXPECT_EQ(deadlines(), Fds{second}) << "the later record replaced the earlier";

    manager().trackLatchUnsignaledGpuFence(first, 1);
    manager().notifyGpuFenceUnsignaled(second, 1);
    manager().flushLatchUnsignaledGpuFences();
    EXPECT_EQ(deadlines(), (Fds{second, second})) << "the immediate report superseded the record";

    SyncFiles::failDeadline(EINVAL);
    manager().notifyGpuFenceUnsignaled(second, 1);
    EXPECT_EQ(mLog.count("[GPU JANK DETECTION] IOCTL failed, ret=-1, fd=" + std::to_string(second) +
                         ", errno=" + std::to_string(EINVAL)),
              1u);

    SyncFiles::failDeadline(0);
    manager().trackLatchUnsignaledGpuFence(first, 1);
    for (int i = 0; i < 2; ++i) idle(1'000'000'001);
    ASSERT_EQ(manager().getLayer(1), nullptr);
    manager().flushLatchUnsignaledGpuFences();
    EXPECT_EQ(deadlines().size(), 3u) << "a removed layer's record is gone";
}

TEST_F(LayerGpuJankTest, FiltersByExecutionTime) {
    const int gpu = fence("mdrt-timeline");
    mSimulation.advance(k60Hz);
    queue(1);
    const auto minimum = static_cast<nsecs_t>(1.5f * static_cast<float>(k60Hz));
    mSimulation.advance(minimum - 1);
    queue(1);  // the older buffer's work goes on
    manager().notifyGpuFenceUnsignaled(gpu, 1);
    manager().trackLatchUnsignaledGpuFence(gpu, 1);
    manager().flushLatchUnsignaledGpuFences();
    EXPECT_EQ(deadlines(), Fds{});
    mSimulation.advance(1);
    manager().flushLatchUnsignaledGpuFences();
    EXPECT_EQ(deadlines(), Fds{}) << "a filtered record is gone";
    manager().notifyGpuFenceUnsignaled(gpu, 1);
    EXPECT_EQ(deadlines(), Fds{gpu});

    for (const int64_t period : {int64_t{0}, int64_t{-5}}) {
        manager().setVsyncPeriod(period);
        manager().notifyGpuFenceUnsignaled(gpu, 1);
        manager().trackLatchUnsignaledGpuFence(gpu, 1);
        manager().flushLatchUnsignaledGpuFences();
    }
    EXPECT_EQ(deadlines(), Fds{gpu}) << "no period to judge by";
}

class LayerGpuJankOffTest : public RegistryTest {};

TEST_F(LayerGpuJankOffTest, RecordsNothing) {
    track(1);
    const int fd = SyncFiles::create("mdrt-timeline");
    manager().trackLatchUnsignaledGpuFence(fd, 1);
    close(fd);
    EXPECT_EQ(SyncFiles::infoCount(), 0);
}

}  // namespace
}  // namespace android
