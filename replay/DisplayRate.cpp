// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/DisplayRate.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <utility>

#include "replay/TextTable.h"

namespace corvane::replay {
namespace {

// Displays refresh at 10 to 1000 Hz; an interval beyond that is a pause or noise.
constexpr int64_t kLongestNs = 100'000'000;
// Phones' displays refresh at 48 Hz or more while something moves; slower vsyncs are content's.
constexpr int64_t kSlowestDisplayNs = 21'000'000;

// Signals are written by threads that wake up late now and then: intervals are the same within this
// share of them, and multiples of a period within this share of the period.
constexpr double kSame = 0.08;
constexpr double kOfMultiple = 0.15;
// A base has this share of all intervals, and this share of them are its multiples.
constexpr double kSupport = 0.02;
constexpr size_t kLeastSupport = 2;
constexpr double kFit = 0.8;
// A base that no interval has itself takes more to show, and is no faster than displays are: 60 and
// 90 Hz in turn have a base as well.
constexpr size_t kLeastShowing = 3;
constexpr int64_t kFastestPartNs = 6'000'000;
// The error of a base grows with the multiple: larger ones say nothing.
constexpr int64_t kMaxFactor = 8;

// Rates are looked for in pieces of this length, if a piece has enough intervals.
constexpr int64_t kWindowNs = 500'000'000;
constexpr size_t kLeastInWindow = 8;
// A counter's values that differ by less are one rate, measured twice.
constexpr double kCounterNoise = 0.03;
// A counter that begins later than this says nothing on what was before.
constexpr int64_t kLateCounterNs = 100'000'000;

struct Interval {
    int64_t endNs;
    int64_t lengthNs;
};

// A stretch in which the intervals have one base; `count` of them begin at `first`.
struct Run {
    size_t first;
    size_t count;
    int64_t periodNs;
};

bool isSame(int64_t a, int64_t b) {
    return static_cast<double>(std::abs(a - b)) <= kSame * static_cast<double>(std::min(a, b));
}

// Which multiple of the period this is; 0 when it is none.
int64_t multipleOf(int64_t lengthNs, int64_t periodNs) {
    const int64_t factor = (lengthNs + periodNs / 2) / periodNs;
    const auto error = static_cast<double>(std::abs(lengthNs - factor * periodNs));
    return error <= kOfMultiple * static_cast<double>(periodNs) ? factor : 0;
}

int64_t median(std::vector<int64_t>& values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// The period that the base's multiples show together, if enough of the intervals are multiples.
std::optional<int64_t> fitted(const std::vector<int64_t>& intervals, int64_t baseNs) {
    std::vector<int64_t> periods;
    size_t looked = 0;
    for (const int64_t length : intervals) {
        if (length > kMaxFactor * baseNs) continue;
        ++looked;
        if (const int64_t factor = multipleOf(length, baseNs)) periods.push_back(length / factor);
    }
    if (periods.empty() ||
        static_cast<double>(periods.size()) < kFit * static_cast<double>(looked)) {
        return std::nullopt;
    }
    return median(periods);
}

size_t supportOf(const std::vector<int64_t>& intervals, size_t least) {
    const double share = kSupport * static_cast<double>(intervals.size());
    return std::max(least, static_cast<size_t>(std::ceil(share)));
}

// A half or a third of an interval, if others show that this is their base: 22 and 33 ms are of
// one of 11 ms, although no content wanted every vsync.
std::optional<int64_t> commonPart(const std::vector<int64_t>& intervals, int64_t lengthNs) {
    for (const int64_t parts : {2, 3}) {
        const int64_t partNs = lengthNs / parts;
        if (partNs < kFastestPartNs) break;
        size_t showing = 0;
        for (const int64_t length : intervals) {
            if (length > kMaxFactor * partNs) break;
            if (multipleOf(length, partNs) % parts != 0) ++showing;
        }
        if (showing < supportOf(intervals, kLeastShowing)) continue;
        if (const auto base = fitted(intervals, partNs)) return base;
    }
    return std::nullopt;
}

std::vector<Interval> intervalsOf(const std::vector<std::vector<int64_t>>& signals) {
    std::vector<Interval> intervals;
    for (const auto& times : signals) {
        for (size_t i = 1; i < times.size(); ++i) {
            const int64_t length = times[i] - times[i - 1];
            if (length < kShortestPeriodNs || length > kLongestNs) continue;
            intervals.push_back({times[i], length});
        }
    }
    std::stable_sort(intervals.begin(), intervals.end(),
                     [](const auto& a, const auto& b) { return a.endNs < b.endNs; });
    return intervals;
}

std::vector<int64_t> lengthsOf(const std::vector<Interval>& intervals, size_t first, size_t count) {
    std::vector<int64_t> lengths;
    lengths.reserve(count);
    for (size_t i = first; i < first + count; ++i) lengths.push_back(intervals[i].lengthNs);
    return lengths;
}

std::optional<int64_t> baseOf(const std::vector<Interval>& intervals, size_t first, size_t count) {
    return commonBase(lengthsOf(intervals, first, count));
}

// The run's period as all of its intervals show it.
int64_t periodOf(const std::vector<Interval>& intervals, const Run& run) {
    return fitted(lengthsOf(intervals, run.first, run.count), run.periodNs).value_or(run.periodNs);
}

// One run for each window; one without a base of its own belongs to the run before it.
std::vector<Run> windowsOf(const std::vector<Interval>& intervals) {
    std::vector<Run> runs;
    for (size_t first = 0; first < intervals.size();) {
        const int64_t endNs = intervals[first].endNs + kWindowNs;
        size_t end = first;
        while (end < intervals.size() && intervals[end].endNs < endNs) ++end;
        const size_t count = end - first;
        const auto base = count < kLeastInWindow ? std::nullopt : baseOf(intervals, first, count);
        if (base && (runs.empty() || runs.back().periodNs == 0)) {
            if (runs.empty()) runs.push_back({first, 0, 0});
            runs.back().periodNs = *base;
            runs.back().count += count;
        } else if (base) {
            runs.push_back({first, count, *base});
        } else {
            if (runs.empty()) runs.push_back({first, 0, 0});
            runs.back().count += count;
        }
        first = end;
    }
    if (!runs.empty() && runs.front().periodNs == 0) runs.clear();
    return runs;
}

// Whether a run at `factor` times the period of its neighbour shows that the display was slower
// then, and not only its content. It does when none of its intervals needs the faster rate, in a
// stretch in which content that comes on demand as it does elsewhere would have needed it.
bool isSlowerDisplay(const std::vector<Interval>& intervals, const Run& run, int64_t fastNs,
                     int64_t factor) {
    constexpr double kByChance = 1e-6;
    // Around a switch, a run may begin or end with intervals of its neighbour's.
    constexpr double kCore = 0.7;
    if (run.periodNs > kSlowestDisplayNs) return false;
    size_t outside = 0, othersOutside = 0, core = 0, longestCore = 0;
    for (size_t i = 0; i < intervals.size(); ++i) {
        const bool needsFast = multipleOf(intervals[i].lengthNs, fastNs) % factor != 0;
        if (i < run.first || i >= run.first + run.count) {
            ++(needsFast ? outside : othersOutside);
            continue;
        }
        core = needsFast ? 0 : core + 1;
        longestCore = std::max(longestCore, core);
    }
    if (outside == 0) return false;
    const auto count = static_cast<double>(longestCore);
    const double share =
            static_cast<double>(outside) / static_cast<double>(outside + othersOutside);
    return count >= kCore * static_cast<double>(run.count) &&
           (share >= 1.0 || count * std::log1p(-share) < std::log(kByChance));
}

// Joins neighbours as `period` tells: the period of both together, or nothing where they stay two.
template <typename Period>
void joinNeighbours(std::vector<Run>& runs, Period period) {
    std::vector<Run> joined;
    for (const Run& run : runs) {
        const auto common = joined.empty() ? std::nullopt : period(joined.back(), run);
        if (common) {
            joined.back().count += run.count;
            joined.back().periodNs = *common;
        } else {
            joined.push_back(run);
        }
    }
    runs = std::move(joined);
}

// Joins what has one rate, and stretches of slower content to the display's rate around them.
void joinRuns(const std::vector<Interval>& intervals, std::vector<Run>& runs) {
    constexpr int kMaxRounds = 16;  // real recordings need two or three
    using Joined = std::optional<int64_t>;
    size_t before = 0;
    for (int round = 0; round < kMaxRounds && runs.size() != before; ++round) {
        before = runs.size();
        joinNeighbours(runs, [](const Run& a, const Run& b) {
            return isSame(a.periodNs, b.periodNs) ? Joined(a.periodNs) : std::nullopt;
        });
        joinNeighbours(runs, [&](const Run& a, const Run& b) -> Joined {
            const Run& slow = a.periodNs > b.periodNs ? a : b;
            const int64_t fastNs = std::min(a.periodNs, b.periodNs);
            const int64_t factor = multipleOf(slow.periodNs, fastNs);
            if (factor < 2 || isSlowerDisplay(intervals, slow, fastNs, factor)) return {};
            return fastNs;
        });
    }
}

// A window may straddle the switch: moves it to where most intervals around are of their side's
// rate.
void placeSwitch(const std::vector<Interval>& intervals, Run& before, Run& after) {
    const int64_t aroundNs = intervals[after.first].endNs;
    size_t first = after.first;
    while (first > before.first + 1 && intervals[first - 1].endNs > aroundNs - kWindowNs) --first;
    size_t end = after.first;
    while (end < after.first + after.count && intervals[end].endNs < aroundNs + kWindowNs) ++end;
    int64_t score = 0, best = 0;
    size_t bestAt = first;
    for (size_t i = first; i < end; ++i) {  // with intervals up to i on the side before
        score += isSame(intervals[i].lengthNs, before.periodNs) ? 1 : 0;
        score -= isSame(intervals[i].lengthNs, after.periodNs) ? 1 : 0;
        if (score <= best) continue;
        best = score;
        bestAt = i + 1;
    }
    const size_t endOfAfter = after.first + after.count;
    if (bestAt >= endOfAfter) return;
    before.count = bestAt - before.first;
    after = {bestAt, endOfAfter - bestAt, after.periodNs};
}

// The rates that these signals show; none where they show no base.
std::vector<Rate> ratesOfIntervals(const std::vector<std::vector<int64_t>>& signals) {
    const std::vector<Interval> intervals = intervalsOf(signals);
    std::vector<Run> runs = windowsOf(intervals);
    joinRuns(intervals, runs);
    std::vector<Rate> rates;
    if (runs.size() <= 1) {
        auto base = baseOf(intervals, 0, intervals.size());
        if (!runs.empty()) {
            const int64_t ofRun = periodOf(intervals, runs.front());
            base = std::min(base.value_or(ofRun), ofRun);
        }
        if (base) rates.push_back({0, *base});
        return rates;
    }
    for (size_t i = 1; i < runs.size(); ++i) placeSwitch(intervals, runs[i - 1], runs[i]);
    for (const Run& run : runs) {
        // What is left of a window that straddled a switch.
        if (run.count < kLeastInWindow && !rates.empty()) continue;
        const int64_t atNs = rates.empty() ? 0 : intervals[run.first - 1].endNs;
        rates.push_back({atNs, periodOf(intervals, run)});
    }
    return rates;
}

// A counter's values as stretches of one rate each, with the median of what was measured in it.
std::vector<Rate> ratesOfCounter(const std::vector<Rate>& counted) {
    std::vector<Rate> rates;
    std::vector<int64_t> measured;
    int64_t firstNs = 0;
    for (const Rate& value : counted) {
        if (value.periodNs < kShortestPeriodNs || value.periodNs > kLongestNs) continue;
        const double change = static_cast<double>(std::abs(value.periodNs - firstNs));
        if (rates.empty() || change > kCounterNoise * static_cast<double>(firstNs)) {
            firstNs = value.periodNs;
            measured.clear();
            rates.push_back(value);
        }
        measured.push_back(value.periodNs);
        // A phone may write thousands of values: a stretch's first few tell enough.
        constexpr size_t kEnough = 64;
        if (measured.size() <= kEnough) {
            std::vector<int64_t> values = measured;
            rates.back().periodNs = median(values);
        }
    }
    return rates;
}

std::string hertz(int64_t periodNs) {
    return format("%.1f Hz", 1e9 / static_cast<double>(periodNs));
}

std::string listed(const std::vector<std::string>& names) {
    std::string text;
    for (const auto& name : names) text += (text.empty() ? "" : " and ") + name;
    return text;
}

// What intervals cannot tell.
std::string cautionOf(const std::vector<Rate>& rates) {
    if (rates.size() == 1 && rates[0].periodNs > kSlowestDisplayNs) {
        return "the vsyncs come at " + hertz(rates[0].periodNs) +
               ", which is slower than displays refresh: they may have come on demand; "
               "--refresh-rate HZ says what the display had";
    }
    for (size_t i = 1; i < rates.size(); ++i) {
        const auto [fast, slow] = std::minmax(rates[i - 1].periodNs, rates[i].periodNs);
        if (multipleOf(slow, fast) < 2) continue;
        return "a switch between " + hertz(fast) + " and " + hertz(slow) +
               " looks like content that comes on demand at the slower rate for a while; "
               "--refresh-rate HZ says that the display did not switch";
    }
    return "";
}

}  // namespace

std::optional<int64_t> commonBase(std::vector<int64_t> intervals) {
    std::sort(intervals.begin(), intervals.end());
    const size_t supported = supportOf(intervals, kLeastSupport);
    for (auto first = intervals.begin(); first != intervals.end();) {
        const auto limit = static_cast<int64_t>(static_cast<double>(*first) * (1.0 + kSame));
        const auto end = std::upper_bound(first, intervals.end(), limit);
        const int64_t middle = *(first + (end - first) / 2);
        if (middle > 0 && static_cast<size_t>(end - first) >= supported) {
            if (const auto part = commonPart(intervals, middle)) return part;
            if (const auto base = fitted(intervals, middle)) return base;
        }
        first = end;
    }
    return std::nullopt;
}

RateFindings displayRate(const RateEvidence& evidence) {
    auto rates = ratesOfIntervals(evidence.vsyncs);
    auto counted = ratesOfCounter(evidence.counted);
    if (!counted.empty()) {
        // Some counters are only written when the rate changes.
        if (counted.front().atNs > kLateCounterNs) {
            std::vector<std::vector<int64_t>> earlier = evidence.vsyncs;
            for (auto& times : earlier) {
                times.erase(std::upper_bound(times.begin(), times.end(), counted.front().atNs),
                            times.end());
            }
            const auto before = ratesOfIntervals(earlier);
            if (!before.empty() && !isSame(before.back().periodNs, counted.front().periodNs)) {
                counted.insert(counted.begin(), before.begin(), before.end());
            }
        }
        counted.front().atNs = 0;
        return {std::move(counted), "the counter " + evidence.counter, ""};
    }
    if (!rates.empty()) {
        auto caution = cautionOf(rates);
        return {std::move(rates), "the intervals of " + listed(evidence.signals),
                std::move(caution)};
    }
    rates = ratesOfIntervals({evidence.expected});
    if (!rates.empty()) {
        auto caution = cautionOf(rates);
        return {std::move(rates), "the times at which frames were expected to show",
                std::move(caution)};
    }
    return {{{0, evidence.fallbackPeriodNs}},
            "the median vsync interval",
            "the vsyncs have no common period, so their median interval is taken for it; "
            "--refresh-rate HZ says what the display had"};
}

}  // namespace corvane::replay
