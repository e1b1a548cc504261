// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The report's document, in the form that drawing needs: typed columns instead of a record per
// frame, and sums that answer for any stretch of time without looking at each frame.

// The number of values in ascending `list` that are below `value`, or at most it.
function countBelow(list, value) {
  let low = 0;
  let high = list.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (list[middle] < value) low = middle + 1; else high = middle;
  }
  return low;
}

function countUntil(list, value) {
  let low = 0;
  let high = list.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (list[middle] <= value) low = middle + 1; else high = middle;
  }
  return low;
}

function percentile(ascending, percent) {
  if (ascending.length === 0) return 0;
  return ascending[Math.max(1, Math.ceil(ascending.length * percent / 100)) - 1];
}

// How long, altogether, intervals last within a stretch of time; overlapping ones count each.
class Coverage {
  constructor(begins, ends) {
    this.begins = Float64Array.from(begins).sort();
    this.ends = Float64Array.from(ends).sort();
    this.beginSums = Coverage.sums(this.begins);
    this.endSums = Coverage.sums(this.ends);
  }

  static sums(list) {
    const sums = new Float64Array(list.length + 1);
    for (let i = 0; i < list.length; ++i) sums[i + 1] = sums[i] + list[i];
    return sums;
  }

  until(time) {
    const begun = countBelow(this.begins, time);
    const ended = countBelow(this.ends, time);
    return (begun - ended) * time - this.beginSums[begun] + this.endSums[ended];
  }

  within(from, to) { return this.until(to) - this.until(from); }
}

// One layer's frames under one policy.
class Track {
  // `endNs`: of the policy's run, for frames whose end it did not see.
  constructor(policy, frames, boosts, endNs) {
    const count = frames.length;
    const column = () => new Float64Array(count).fill(NaN);
    this.policy = policy;
    this.count = count;
    this.endNs = endNs;
    this.number = new Uint32Array(count);  // among the layer's frames
    this.start = column();
    this.queue = column();
    this.letGo = column();
    this.latch = column();
    this.shown = column();
    this.interval = column();  // since the frame shown before; NaN: none, or after a pause
    this.late = new Uint8Array(count);
    this.dropped = new Uint8Array(count);
    this.lane = new Uint8Array(count);  // of its buffer among those that wait
    frames.forEach((frame, i) => {
      this.number[i] = frame.frame;
      this.start[i] = frame.startNs;
      // A run may end while a frame is being drawn, or held.
      const isQueued = frame.queueNs >= frame.startNs;
      const isLetGo = isQueued && frame.letGoNs >= frame.queueNs;
      this.queue[i] = isQueued ? frame.queueNs : endNs;
      this.letGo[i] = isLetGo ? frame.letGoNs : endNs;
      this.latch[i] = isLetGo && frame.latchVsyncNs !== null
        ? Math.max(frame.latchVsyncNs, frame.letGoNs) : endNs;
      if (frame.shownNs !== null) this.shown[i] = frame.shownNs;
      if (isKnown(frame.intervalNs)) this.interval[i] = frame.intervalNs;
      this.late[i] = frame.late ? 1 : 0;
      this.dropped[i] = frame.dropped ? 1 : 0;
    });
    this.boosts = Track.boostSpans(boosts, endNs);
    this.assignLanes();
    this.addShows();
    this.drawing = new Coverage(this.start, this.queue);
    this.held = new Coverage(this.queue, this.letGo);
    this.waiting = new Coverage(this.letGo, this.latch);
  }

  // Each boost until the next one or its end.
  static boostSpans(boosts, endNs) {
    return boosts.map((boost, i) => ({
      fromNs: boost.atNs,
      toNs: i + 1 < boosts.length ? boosts[i + 1].atNs : endNs,
      freqMHz: boost.freqMHz,
    })).filter((boost) => boost.freqMHz > 0);
  }

  // Buffers that wait at the same time lie in lanes above each other.
  assignLanes() {
    const ends = [];
    for (let i = 0; i < this.count; ++i) {
      let lane = ends.findIndex((end) => end <= this.letGo[i]);
      if (lane < 0) lane = ends.length < Track.MAX_LANES ? ends.length : Track.MAX_LANES - 1;
      ends[lane] = this.latch[i];
      this.lane[i] = lane;
    }
    this.lanes = Math.max(1, ends.length);
  }

  // What was on the screen, and from when on.
  addShows() {
    const shows = [];
    for (let i = 0; i < this.count; ++i) if (!Number.isNaN(this.shown[i])) shows.push(i);
    this.shows = Uint32Array.from(shows);
    this.showTimes = Float64Array.from(shows, (i) => this.shown[i]);
    this.lateFrames = Uint32Array.from(shows.filter((i) => this.late[i]));
    this.lateTimes = Float64Array.from(this.lateFrames, (i) => this.shown[i]);
  }

  latency(i) { return this.shown[i] - this.start[i]; }
  showEnd(position) {
    return position + 1 < this.showTimes.length ? this.showTimes[position + 1] : this.endNs;
  }
  latencies() { return Float64Array.from(this.shows, (i) => this.latency(i)).sort(); }
  intervals() { return this.interval.filter((value) => !Number.isNaN(value)).sort(); }

  // The frames that a moment belongs to, by what happens to them then; -1 for none.
  drawnAt(time) {
    const i = countUntil(this.start, time) - 1;
    return i >= 0 && time <= this.letGo[i] ? i : -1;
  }
  waitingAt(time) {
    const i = countBelow(this.latch, time);
    return i < this.count && this.letGo[i] <= time ? i : -1;
  }
  shownAt(time) {
    const position = countUntil(this.showTimes, time) - 1;
    return position >= 0 && time <= this.showEnd(position) ? this.shows[position] : -1;
  }
  nearest(time) {
    return Math.min(this.count - 1, Math.max(0, countUntil(this.start, time) - 1));
  }
  ofNumber(number) {
    const i = countBelow(this.number, number);
    return i < this.count && this.number[i] === number ? i : -1;
  }
}
Track.MAX_LANES = 3;

class Report {
  constructor(document) {
    this.document = document;
    const comparison = document.comparison;
    this.figures = comparison ? comparison.figureKinds : [];
    this.comparison = comparison;
    this.policies = comparison ? comparison.policies.map((policy) => policy.name) : [];
    this.hasLibrary = this.policies.includes('library');
    // What the library is judged against first: the phone as it was recorded.
    this.others = this.policies.filter((name) => name !== 'library');
    this.layers = comparison ? comparison.layers.map((layer, i) => this.layerOf(layer, i)) : [];
    this.layersWithFigures = this.layers.filter((layer) => layer.worthATable)
      .sort((a, b) => b.tracks.get(this.policies[0]).count - a.tracks.get(this.policies[0]).count);
    this.endNs = Math.max(document.replay ? document.replay.durationNs : 0,
      ...(comparison ? comparison.policies.map((policy) => policy.endNs) : []), 1);
    this.vsyncs = this.allVsyncs();
    // The records have served; what is drawn are the columns.
    if (comparison) for (const policy of comparison.policies) delete policy.frames;
  }

  layerOf(layer, index) {
    const tracks = new Map();
    for (const policy of this.comparison.policies) {
      if (!policy.byLayer) policy.byLayer = Report.split(policy, this.comparison.layers.length);
      const { frames, boosts } = policy.byLayer[index];
      tracks.set(policy.name, new Track(policy.name, frames, boosts, policy.endNs));
      policy.byLayer[index] = null;
    }
    const played = this.document.layers || [];
    const own = played[index] && played[index].name === layer.name
      ? played[index] : played.find((candidate) => candidate.name === layer.name);
    return { ...layer, index, tracks, played: own || null };
  }

  static split(policy, layers) {
    const parts = Array.from({ length: layers }, () => ({ frames: [], boosts: [] }));
    for (const frame of policy.frames) parts[frame.layer].frames.push(frame);
    for (const boost of policy.boosts) parts[boost.layer].boosts.push(boost);
    return parts;
  }

  figuresOf(policy, layer) {
    return this.comparison.policies.find((entry) => entry.name === policy).figures[layer.index];
  }

  // The recorded vsyncs and, where phones leave some out, those at which the model did something.
  allVsyncs() {
    if (!this.comparison) return new Float64Array();
    const times = new Set(this.comparison.recordedVsyncsNs);
    for (const layer of this.layers) {
      for (const track of layer.tracks.values()) {
        for (const time of track.showTimes) times.add(time);
      }
    }
    return Float64Array.from(times).sort();
  }

  touches() {
    const events = (this.document.settings && this.document.settings.events) || [];
    return events.filter((event) => event.touch !== undefined);
  }
}
