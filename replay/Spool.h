// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <vector>

namespace corvane::replay {

// The blocks of all spools of the process: a file without a name, which goes away with the process
// however that ends, and which is there from the first block on. May be used from any thread.
//
// What fails is kept: records come on the library's threads as well, which nothing may be thrown
// on. From then on no block can be read.
class SpoolFile {
  public:
    static constexpr size_t kBlockBytes = 4'096;

    // At most a block each. A new block's number.
    static uint32_t append(const void* records, size_t bytes);
    static void write(uint32_t block, const void* records, size_t bytes);
    // Throws Stop, as check() does.
    static void read(uint32_t block, void* records, size_t bytes);
    // Throws Stop when anything failed until now.
    static void check();
};

// A sequence of records that grows with what is replayed, and need not fit the memory: one block at
// its end and one that is being read are in memory, the others are in the file. Nothing is
// allocated while it is empty. Reading and changing throw Stop; appending, and reading or changing
// the last record, do not. One thread at a time, for reading too.
template <typename T>
class Spool {
    static_assert(std::is_trivially_copyable_v<T>, "records are written as they are");

  public:
    static constexpr size_t kBlockRecords = SpoolFile::kBlockBytes / sizeof(T);

    class Iterator {
      public:
        Iterator(const Spool& spool, size_t index) : mSpool(spool), mIndex(index) {}
        T operator*() const { return mSpool[mIndex]; }
        Iterator& operator++() {
            ++mIndex;
            return *this;
        }
        bool operator!=(const Iterator& other) const { return mIndex != other.mIndex; }

      private:
        const Spool& mSpool;
        size_t mIndex;
    };

    size_t size() const { return mBlocks.size() * kBlockRecords + mLast.size(); }
    bool empty() const { return mLast.empty(); }
    T operator[](size_t index) const { return record(index); }
    T front() const { return record(0); }
    T back() const { return mLast.back(); }
    Iterator begin() const { return {*this, 0}; }
    Iterator end() const { return {*this, size()}; }

    void push_back(const T& added) {
        // Only now, so that the last record stays in memory.
        if (mLast.size() == kBlockRecords) {
            mBlocks.push_back(SpoolFile::append(mLast.data(), kBlockRecords * sizeof(T)));
            mLast.clear();
        }
        mLast.push_back(added);
    }

    void set(size_t index, const T& changed) {
        record(index) = changed;
        if (index / kBlockRecords < mBlocks.size()) mRead->isChanged = true;
    }

  private:
    struct ReadBlock {
        size_t index;
        bool isChanged = false;  // and not written yet
        std::array<T, kBlockRecords> records;
    };

    // Valid until the next record is read.
    T& record(size_t index) const {
        const size_t block = index / kBlockRecords;
        if (block == mBlocks.size()) return mLast[index % kBlockRecords];
        if (!mRead || mRead->index != block) read(block);
        return mRead->records[index % kBlockRecords];
    }

    void read(size_t block) const {
        // When it cannot be read, none is in memory.
        auto read = mRead ? std::move(mRead) : std::make_unique<ReadBlock>();
        constexpr size_t kBytes = kBlockRecords * sizeof(T);
        if (read->isChanged) SpoolFile::write(mBlocks[read->index], read->records.data(), kBytes);
        SpoolFile::read(mBlocks[block], read->records.data(), kBytes);
        read->index = block;
        read->isChanged = false;
        mRead = std::move(read);
    }

    std::vector<uint32_t> mBlocks;  // in the file
    mutable std::vector<T> mLast;   // empty only when all is
    mutable std::unique_ptr<ReadBlock> mRead;
};

}  // namespace corvane::replay
