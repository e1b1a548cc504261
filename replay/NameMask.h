// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace corvane::replay {

// Replaces the names in a trace, one name always by the same. Used from one thread.
//
// Masked names keep the form by which the library tells a layer's package and kind:
// "SurfaceView[com.my.game/com.my.game.Main](BLAST)#7" becomes
// "SurfaceView[com.example.app1/com.example.app1.Name1](BLAST)#7".
class NameMask {
  public:
    // Replaces this text wherever it stands, before anything else.
    void rename(std::string from, std::string to) {
        mRenamed.emplace_back(std::move(from), std::move(to));
    }
    // Replaces all words but those that Android gives to every phone's layers.
    void maskAll() { mMasksAll = true; }
    bool masksAll() const { return mMasksAll; }

    // Of a layer.
    std::string layer(std::string_view name);
    // Of a slice or a counter that may hold a layer's name. Those
    // that the replay does not read become "other" where all are masked.
    std::string marker(std::string_view name);
    // Of a thread, which applications name after themselves: none where all are masked.
    std::string thread(std::string_view name) const { return mMasksAll ? "" : renamed(name); }

  private:
    // More distinct words than any recording has; further ones all get one name.
    static constexpr size_t kMaxWords = 100'000;

    std::string renamed(std::string_view name) const;
    std::string masked(std::string_view name);
    const std::string& wordFor(std::string_view word);
    std::string newWordFor(std::string_view word);

    std::vector<std::pair<std::string, std::string>> mRenamed;
    bool mMasksAll = false;
    std::map<std::string, std::string, std::less<>> mWords;
    size_t mPackages = 0;
    size_t mNames = 0;
};

}  // namespace corvane::replay
