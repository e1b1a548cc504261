// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The timeline: per layer a row for each policy, with a lane for the producer (drawing, held), one
// for the buffers that wait and one for the screen; above them the display and what happened to the
// device, below them what the library had in force. Only what is in view is drawn: frame by frame
// while there is room, else as shares per few pixels. Times are the recording's.

const PHASES = [
  ['drawing', 'Drawing'], ['held', 'Held back'], ['waiting', 'Waiting in the queue'],
  ['screen', 'On the screen'],
];

// From how many pixels per frame on frames are drawn one by one, and else how wide shares are.
const PIXELS_PER_FRAME = 4;
const SHARE_PIXELS = 3;
const LEAST_VIEW_NS = 2e6;
const MOST_LAYERS = 4;

const LANE = { boost: 0, producer: 6, waiting: 21, screen: 36, height: 52 };
const PRODUCER_HEIGHT = 12;
const WAITING_HEIGHT = 12;
const SCREEN_HEIGHT = 12;
const CHART_HEIGHT = 58;
const HEADING_ROOM = 1.15;  // above a chart's largest value
const MARKS_HEIGHT = 18;

// Round steps of time, so that ticks have room.
function tickStep(spanNs, mostTicks) {
  const least = spanNs / Math.max(1, mostTicks);
  const power = 10 ** Math.floor(Math.log10(least));
  return [1, 2, 5, 10].map((factor) => factor * power).find((step) => step >= least);
}

// Values that hold until the next one: the last at or before `time`; -1 for none.
const inForce = (steps, time) => countUntil(steps.times, time) - 1;

// Lists may be too long to be a call's arguments.
const largest = (list) => list.reduce((most, value) => Math.max(most, value), 1);

function stepsOf(list, value) {
  return { times: Float64Array.from(list, (entry) => entry.atNs),
    values: list.map(value) };
}

class Timeline {
  constructor(report) {
    this.report = report;
    this.fromNs = 0;
    this.toNs = report.endNs;
    this.cursor = null;   // row, frame and time that the keyboard or a click chose
    this.pointer = null;  // the same under the pointer
    this.pointers = new Map();
    this.plot = html('div', {
      class: 'plot timeline', tabindex: 0, role: 'application',
      'aria-roledescription': 'timeline', 'aria-label': 'Timeline of frames',
      'aria-describedby': 'timeline-keys',
      onkeydown: (event) => this.onKey(event),
      onwheel: (event) => this.onWheel(event),
      onpointerdown: (event) => this.onDown(event),
      onpointermove: (event) => this.onMove(event),
      onpointerup: (event) => this.onUp(event),
      onpointercancel: (event) => this.onUp(event),
      onpointerleave: () => { this.pointer = null; this.tell(); },
      ondblclick: (event) => this.zoom(0.4, this.timeAt(this.placeOf(event).x)),
    });
    this.readout = html('div', { class: 'readout', 'aria-live': 'polite' });
    this.range = html('span', { class: 'range' });
    this.overview = html('div', {
      class: 'overview', 'aria-hidden': 'true',
      onpointerdown: (event) => this.onOverview(event),
      onpointermove: (event) => { if (event.buttons) this.onOverview(event); },
    });
    const button = (label, title, action) =>
      html('button', { type: 'button', title, 'aria-label': title, onclick: action }, label);
    this.element = html('div', {},
      html('div', { class: 'toolbar' },
        html('span', { class: 'buttons' },
          button('\u2212', 'Zoom out', () => this.zoom(2)),
          button('+', 'Zoom in', () => this.zoom(0.5)),
          button('All', 'Show the whole run', () => this.show(0, report.endNs)),
          button('\u25c0', 'Earlier', () => this.pan(-0.5)),
          button('\u25b6', 'Later', () => this.pan(0.5)),
          button('\u25bc Next late frame', 'Next late frame', () => this.nextLate(1))),
        this.range),
      this.legend(), this.overview, this.plot, this.readout,
      html('p', { class: 'note', id: 'timeline-keys' },
        'Drag to pan; zoom with Ctrl and the wheel, two fingers or a double click. Keys: left and right '
        + 'go from frame to frame, up and down from row to row, + and \u2212 zoom, Page up and Page '
        + 'down pan, L and Shift L go to the next and last late frame, 0 shows all.'));
    this.setLayers(report.layersWithFigures.slice(0, MOST_LAYERS));
    window.addEventListener('hashchange', () => this.follow(window.location.hash));
    this.follow(window.location.hash);
  }

  // A link may name the view: #from=2.1&to=2.4, in seconds.
  follow(hash) {
    const view = new URLSearchParams(hash.slice(1));
    const [from, to] = [view.get('from'), view.get('to')].map((text) => text === null ? NaN : Number(text));
    if (from < to) this.show(from * NS_PER_S, to * NS_PER_S);
  }

  legend() {
    const sample = (name, label) => html('span', {}, svg('svg', { width: 26, height: 12, 'aria-hidden': 'true' },
      svg('rect', { class: `phase ${name}`, width: 26, height: 12 })), label);
    const mark = (draw, label) => html('span', {}, svg('svg', { width: 14, height: 12, 'aria-hidden': 'true' },
      draw), label);
    return html('div', { class: 'legend' },
      PHASES.map(([name, label]) => sample(name, label)),
      mark(svg('path', { class: 'late', d: 'M2 1H12L7 10Z' }), 'Late'),
      mark(svg('path', { class: 'dropped', d: 'M3 2L11 10M11 2L3 10' }), 'Dropped'),
      mark(svg('path', { class: 'boost', d: 'M7 1L12 6L7 11L2 6Z' }), 'GPU boost'),
      mark(svg('circle', { class: 'touch', cx: 7, cy: 6, r: 4 }), 'Touch'),
      mark(svg('path', { class: 'flag', d: 'M3 12V1H12L9 4L12 7H4' }), 'Mode, rate or feature changes'),
      mark(svg('path', { class: 'vsync', d: 'M7 0V12' }), 'Vsync'));
  }

  setLayers(layers) {
    this.layers = layers;
    this.rows = [];
    for (const layer of layers) {
      this.rows.push({ kind: 'layer', layer, height: 22 });
      for (const policy of this.report.policies) {
        this.rows.push({ kind: 'track', layer, track: layer.tracks.get(policy), height: LANE.height });
      }
      if (layer.played) this.addCharts(layer);
    }
    this.marks = this.marksOf(layers);
    this.cursor = null;
    this.draw();
  }

  addCharts(layer) {
    const { features, fpsWindows, fpsModes } = layer.played;
    const inForceList = features.headroom.inForce || [];
    const windows = stepsOf(fpsWindows, (entry) => entry.fps);
    const modes = stepsOf(fpsModes, (entry) => entry.mode);
    if (inForceList.length > 0) {
      const steps = stepsOf(inForceList, (entry) => entry.headroomNs);
      this.rows.push({ kind: 'headroom', layer, steps, height: CHART_HEIGHT,
        most: HEADING_ROOM * largest(steps.values) });
    }
    if (windows.values.length > 0) {
      this.rows.push({ kind: 'fps', layer, windows, modes, height: CHART_HEIGHT,
        most: HEADING_ROOM * Math.max(largest(windows.values), largest(modes.values)) });
    }
  }

  // What happened to the device and within the library, in time's order.
  marksOf(layers) {
    const { document } = this.report;
    const touches = this.report.touches().map((event) =>
      ({ atNs: event.atNs, kind: 'touch', text: `touch ${shown(event.touch)}` }));
    const changes = [];
    for (const change of document.recording.rateChanges || []) {
      changes.push({ atNs: change.atNs, kind: 'flag', text: `display ${hertz(change.vsyncPeriodNs)}`,
        short: `${fixed(NS_PER_S / change.vsyncPeriodNs, 0)} Hz` });
    }
    for (const layer of layers) {
      if (!layer.played) continue;
      const whose = layers.length > 1 ? ` (${shortened(layer.name, 24)})` : '';
      for (const { atNs, mode } of layer.played.fpsModes) {
        changes.push({ atNs, kind: 'flag', text: `mode ${mode}${whose}`, short: `mode ${mode}` });
      }
      const names = { headroom: 'headroom', targetFps: 'target FPS', frameRescue: 'rescue' };
      for (const [key, name] of Object.entries(names)) {
        for (const change of layer.played.features[key].switches) {
          const state = change.on ? 'on' : 'off';
          const rate = change.targetFps ? ` at ${fixed(change.targetFps, 1)}/s` : '';
          const reason = change.becauseOfJank ? ', because of jank' : '';
          changes.push({ atNs: change.atNs, kind: 'flag', short: `${name} ${state}`,
            text: `${name} ${state}${rate}${reason}${whose}` });
        }
      }
    }
    const ordered = (list) => list.sort((a, b) => a.atNs - b.atNs);
    return { touches: ordered(touches), changes: ordered(changes) };
  }

  // Geometry.

  x(time) { return this.left + (time - this.fromNs) * this.scale; }
  timeAt(x) { return this.fromNs + (x - this.left) / this.scale; }
  isDetailed() {
    return this.rows.every((row) => row.kind !== 'track' || this.scale
      * (this.toNs - this.fromNs) / Math.max(1, this.framesIn(row.track)) >= PIXELS_PER_FRAME);
  }
  framesIn(track) {
    return countUntil(track.start, this.toNs) - countBelow(track.start, this.fromNs);
  }

  show(fromNs, toNs) {
    const whole = this.report.endNs;
    const span = Math.min(whole, Math.max(LEAST_VIEW_NS, toNs - fromNs));
    this.fromNs = Math.min(Math.max(0, fromNs), whole - span);
    this.toNs = this.fromNs + span;
    this.schedule();
  }

  zoom(factor, around) {
    const centre = around ?? (this.cursor ? this.cursor.time : (this.fromNs + this.toNs) / 2);
    const fixedAt = Math.min(this.toNs, Math.max(this.fromNs, centre));
    this.show(fixedAt - (fixedAt - this.fromNs) * factor, fixedAt + (this.toNs - fixedAt) * factor);
  }

  pan(share) {
    const by = share * (this.toNs - this.fromNs);
    this.show(this.fromNs + by, this.toNs + by);
  }

  schedule() {
    if (this.scheduled) return;
    this.scheduled = true;
    requestAnimationFrame(() => {
      this.scheduled = false;
      this.draw();
    });
  }

  // Drawing.

  draw() {
    const width = this.plot.clientWidth || 900;
    this.narrow = width < 640;
    this.left = this.narrow ? 0 : 124;
    this.width = width;
    this.scale = (width - this.left - 1) / (this.toNs - this.fromNs);
    this.detailed = this.isDetailed();
    this.layout();
    const root = svg('svg', { viewBox: `0 0 ${width} ${this.height}`, role: 'img',
      'aria-label': `Timeline from ${seconds(this.fromNs)} to ${seconds(this.toNs)}` }, this.patterns());
    this.drawVsyncs(root);
    this.drawAxis(root);
    for (const row of this.rows) this.drawRow(root, row);
    this.line = svg('line', { class: 'cursor', y1: 0, y2: this.height });
    this.mark = svg('g', { class: 'selection' });
    root.append(this.mark, this.line);
    this.plot.replaceChildren(root);
    this.range.textContent = `${seconds(this.fromNs)} to ${seconds(this.toNs)} (${this.spanText()})`
      + (this.detailed ? '' : '; too dense for single frames: heights are shares of time');
    this.drawOverview();
    this.tell();
  }

  spanText() {
    const span = this.toNs - this.fromNs;
    return span < NS_PER_S ? millis(span, 1) : seconds(span, 2);
  }

  layout() {
    const heading = this.narrow ? 13 : 0;
    let y = 20;
    this.lanes = [{ kind: 'vsyncs', label: 'vsyncs', y: y + heading, height: 10 }];
    y += 14 + heading;
    for (const [kind, label] of [['touches', 'touches'], ['changes', 'changes']]) {
      if (this.marks[kind].length === 0) continue;
      this.lanes.push({ kind, label, y: y + heading, height: MARKS_HEIGHT });
      y += MARKS_HEIGHT + heading;
    }
    for (const row of this.rows) {
      y += row.kind === 'layer' ? 4 : heading;
      row.y = y;
      y += row.height;
    }
    this.height = y + 4;
  }

  patterns() {
    const pattern = (id, size, ...content) => svg('pattern', { id, width: size, height: size,
      patternUnits: 'userSpaceOnUse' }, svg('rect', { class: `ground ${id}`, width: size, height: size }), content);
    return svg('defs', {},
      pattern('hatch', 6, svg('path', { class: 'hatching', d: 'M-1 1L1 -1M0 6L6 0M5 7L7 5' })),
      pattern('dots', 4, svg('circle', { class: 'dot', cx: 1.2, cy: 1.2, r: 0.8 }),
        svg('circle', { class: 'dot', cx: 3.2, cy: 3.2, r: 0.8 })));
  }

  label(root, text, y, middle, cls = 'label') {
    root.append(svg('text', { class: cls, x: this.narrow ? 2 : this.left - 8,
      y: this.narrow ? y - 3 : middle, 'text-anchor': this.narrow ? 'start' : 'end' }, text));
  }

  drawAxis(root) {
    const step = tickStep(this.toNs - this.fromNs, (this.width - this.left) / 90);
    const digits = Math.max(0, Math.min(6, Math.ceil(-Math.log10(step / NS_PER_S))));
    const path = [];
    for (let tick = Math.ceil(this.fromNs / step); tick * step <= this.toNs; ++tick) {
      const x = this.x(tick * step);
      path.push(`M${x.toFixed(1)} 14V20`);
      if (x > this.width - 30) continue;
      root.append(svg('text', { class: 'tiny', x: Math.max(x, this.left), y: 11,
        'text-anchor': x < this.left + 16 ? 'start' : 'middle' }, seconds(tick * step, digits)));
    }
    root.append(svg('path', { class: 'axis', d: path.join('') }));
    for (const lane of this.lanes) {
      this.label(root, lane.label, lane.y, lane.y + lane.height / 2 + 4, 'label quiet');
      if (lane.kind !== 'vsyncs') this.drawMarks(root, lane);
    }
  }

  drawVsyncs(root) {
    const lane = this.lanes[0];
    const { vsyncs } = this.report;
    const first = countBelow(vsyncs, this.fromNs);
    const end = countUntil(vsyncs, this.toNs);
    const room = (this.toNs - this.fromNs) * this.scale / Math.max(1, end - first);
    if (room < 3) {
      root.append(svg('rect', { class: 'vsync-band', x: this.left, y: lane.y + 2,
        width: this.width - this.left, height: lane.height - 4 }));
      return;
    }
    const short = [];
    const long = [];
    for (let i = first; i < end; ++i) {
      const x = this.x(vsyncs[i]).toFixed(1);
      short.push(`M${x} ${lane.y}v${lane.height}`);
      if (room >= 10) long.push(`M${x} ${lane.y + lane.height}V${this.height}`);
    }
    root.append(svg('path', { class: 'vsync-line', d: long.join('') }),
      svg('path', { class: 'vsync', d: short.join('') }));
  }

  drawMarks(root, lane) {
    const list = this.marks[lane.kind];
    const middle = lane.y + lane.height / 2;
    let lastX = -Infinity;
    for (const [i, mark] of list.entries()) {
      if (mark.atNs < this.fromNs || mark.atNs > this.toNs) continue;
      const x = this.x(mark.atNs);
      if (x - lastX < (mark.kind === 'touch' ? 9 : 1)) continue;  // lies under the one before
      lastX = x;
      if (mark.kind === 'touch') {
        root.append(svg('circle', { class: 'touch', cx: x, cy: middle, r: 4 }));
        continue;
      }
      root.append(svg('path', { class: 'flag', d: `M${x.toFixed(1)} ${lane.y + 17}v-14h9l-3 3l3 3h-9` }));
      const end = i + 1 < list.length ? Math.min(this.width, this.x(list[i + 1].atNs)) : this.width;
      if (x + 14 + 7 * mark.short.length > end) continue;
      root.append(svg('text', { class: 'tiny', x: x + 12, y: middle + 3 }, mark.short));
    }
  }

  drawRow(root, row) {
    switch (row.kind) {
      case 'layer': {
        const room = Math.max(12, Math.floor((this.width - 20) / 7));
        root.append(svg('line', { class: 'divider', x1: 0, x2: this.width, y1: row.y, y2: row.y }),
          svg('text', { class: 'layer-name', x: 2, y: row.y + 16 }, shortened(row.layer.name, room)));
        break;
      }
      case 'track':
        this.label(root, row.track.policy, row.y, row.y + LANE.waiting + 10,
          row.track.policy === 'library' ? 'label own' : 'label');
        root.append(svg('line', { class: 'base', x1: this.left, x2: this.width,
          y1: row.y + LANE.screen + SCREEN_HEIGHT, y2: row.y + LANE.screen + SCREEN_HEIGHT }));
        if (this.detailed) this.drawFrames(root, row); else this.drawShares(root, row);
        this.drawBoosts(root, row);
        break;
      default:
        this.drawChart(root, row);
    }
  }

  // Frames one by one. Each phase is one path, so that a view has few elements.
  drawFrames(root, { track, y }) {
    const parts = { drawing: [], held: [], waiting: [], screen: [], late: [], dropped: [] };
    const box = (list, fromNs, toNs, top, height) => {
      const from = Math.max(this.left, this.x(fromNs));
      const to = Math.min(this.width, this.x(toNs));
      if (to <= from) return;
      const end = to - from > 3 ? to - 1 : to;  // a gap, where there is room for one
      list.push(`M${from.toFixed(1)} ${top}H${end.toFixed(1)}v${height}H${from.toFixed(1)}Z`);
    };
    const producer = y + LANE.producer;
    for (let i = Math.max(0, countUntil(track.start, this.fromNs) - 1);
      i < track.count && track.start[i] <= this.toNs; ++i) {
      box(parts.drawing, track.start[i], track.queue[i], producer, PRODUCER_HEIGHT);
      if (track.letGo[i] > track.queue[i]) {
        box(parts.held, track.queue[i], track.letGo[i], producer, PRODUCER_HEIGHT);
      }
    }
    const laneHeight = WAITING_HEIGHT / track.lanes;
    for (let i = countBelow(track.latch, this.fromNs);
      i < track.count && track.letGo[i] <= this.toNs; ++i) {
      const top = y + LANE.waiting + WAITING_HEIGHT - (track.lane[i] + 1) * laneHeight;
      box(parts.waiting, track.letGo[i], track.latch[i], top, laneHeight - (track.lanes > 1 ? 0.5 : 0));
      if (!track.dropped[i]) continue;
      const x = this.x(track.latch[i]);
      if (x < this.left) continue;
      const middle = y + LANE.waiting + WAITING_HEIGHT / 2;
      parts.dropped.push(`M${(x - 4).toFixed(1)} ${middle - 4}l8 8m0 -8l-8 8`);
    }
    for (let s = Math.max(0, countUntil(track.showTimes, this.fromNs) - 1);
      s < track.showTimes.length && track.showTimes[s] <= this.toNs; ++s) {
      box(parts.screen, track.showTimes[s], track.showEnd(s), y + LANE.screen + 0.5, SCREEN_HEIGHT - 1);
      if (track.late[track.shows[s]]) this.lateMark(parts.late, track.showTimes[s], y);
    }
    for (const [name, path] of Object.entries(parts)) {
      if (path.length === 0) continue;
      root.append(svg('path', { class: name in { late: 1, dropped: 1 } ? name : `phase ${name}`, d: path.join('') }));
    }
  }

  lateMark(list, time, y) {
    const x = this.x(time);
    if (x < this.left) return;
    list.push(`M${(x - 4.5).toFixed(1)} ${y + LANE.screen - 5}h9l-4.5 8Z`);
  }

  // Zoomed out: what share of each few pixels a phase takes.
  drawShares(root, { track, y }) {
    const parts = { drawing: [], held: [], waiting: [], screen: [], late: [] };
    const group = root.appendChild(svg('g', { class: 'shares' }));
    const binNs = SHARE_PIXELS / this.scale;
    const periodNs = this.report.comparison.vsyncPeriodNs;
    const bar = (list, x, base, height) => {
      if (height > 0.3) list.push(`M${x.toFixed(1)} ${base.toFixed(1)}v${(-height).toFixed(1)}h${SHARE_PIXELS}v${height.toFixed(1)}Z`);
    };
    let lastLate = -Infinity;
    // Bins lie at multiples of their width, so that panning does not change them.
    for (let bin = Math.floor(this.fromNs / binNs); bin * binNs < this.toNs; ++bin) {
      const from = bin * binNs;
      const to = from + binNs;
      const x = this.x(from);
      if (x < this.left) continue;
      const drawing = PRODUCER_HEIGHT * track.drawing.within(from, to) / binNs;
      const held = PRODUCER_HEIGHT * track.held.within(from, to) / binNs;
      const base = y + LANE.producer + PRODUCER_HEIGHT;
      bar(parts.drawing, x, base, drawing);
      bar(parts.held, x, base - drawing, held);
      bar(parts.waiting, x, y + LANE.waiting + WAITING_HEIGHT,
        Math.min(1, track.waiting.within(from, to) / binNs / track.lanes) * WAITING_HEIGHT);
      const shownFrames = countBelow(track.showTimes, to) - countBelow(track.showTimes, from);
      bar(parts.screen, x, y + LANE.screen + SCREEN_HEIGHT,
        Math.min(1, shownFrames * periodNs / binNs) * SCREEN_HEIGHT);
      if (countBelow(track.lateTimes, to) > countBelow(track.lateTimes, from) && x - lastLate >= 10) {
        this.lateMark(parts.late, (from + to) / 2, y);
        lastLate = x;
      }
    }
    for (const [name, path] of Object.entries(parts)) {
      if (path.length === 0) continue;
      group.append(svg('path', { class: name === 'late' ? name : `phase ${name}`, d: path.join('') }));
    }
  }

  drawBoosts(root, { track, y }) {
    const bars = [];
    const points = [];
    let lastX = -Infinity;
    for (const boost of track.boosts) {
      if (boost.toNs < this.fromNs || boost.fromNs > this.toNs) continue;
      const from = Math.max(this.left, this.x(boost.fromNs));
      const to = Math.min(this.width, this.x(boost.toNs));
      bars.push(`M${from.toFixed(1)} ${y + 2}H${to.toFixed(1)}v2H${from.toFixed(1)}Z`);
      if (boost.fromNs < this.fromNs || from - lastX < 6) continue;
      lastX = from;
      points.push(`M${from.toFixed(1)} ${y - 1}l4 4l-4 4l-4 -4Z`);
    }
    if (bars.length > 0) root.append(svg('path', { class: 'boost', d: bars.join('') + points.join('') }));
  }

  drawChart(root, row) {
    const isHeadroom = row.kind === 'headroom';
    const top = row.y + 6;
    const base = row.y + row.height - 6;
    const y = (value) => base - (base - top) * value / row.most;
    // Beside the rows there is room for a name at the edge and the scale next to the plot.
    root.append(svg('text', { class: 'label quiet', x: 2, y: this.narrow ? row.y - 3 : row.y + 26 },
      isHeadroom ? 'headroom' : 'FPS, mode'));
    if (isHeadroom && !this.narrow) {
      root.append(svg('text', { class: 'tiny', x: 2, y: row.y + 40 }, 'in force'));
    }
    const step = tickStep(row.most, 3);
    for (let tick = 0; tick <= row.most; tick += step) {
      root.append(svg('line', { class: 'grid', x1: this.left, x2: this.width, y1: y(tick), y2: y(tick) }),
        svg('text', { class: 'tiny', x: this.narrow ? this.width - 2 : this.left - 4,
          y: this.narrow ? y(tick) - 2 : y(tick) + 4, 'text-anchor': 'end' },
          isHeadroom ? millis(tick, step < NS_PER_MS ? 1 : 0) : `${fixed(tick, 0)}/s`));
    }
    if (isHeadroom) {
      root.append(svg('path', { class: 'line', d: this.stepPath(row.steps, y) }));
      return;
    }
    root.append(svg('path', { class: 'line modes', d: this.stepPath(row.modes, y) }));
    const dots = [];
    const { times, values } = row.windows;
    let lastX = -Infinity;
    for (let i = countBelow(times, this.fromNs); i < times.length && times[i] <= this.toNs; ++i) {
      const x = this.x(times[i]);
      if (x - lastX < 1) continue;
      lastX = x;
      dots.push(`M${(x - 2.5).toFixed(1)} ${(y(values[i]) - 2.5).toFixed(1)}h5v5h-5Z`);
    }
    root.append(svg('path', { class: 'points', d: dots.join('') }));
  }

  stepPath(steps, y) {
    const { times, values } = steps;
    const path = [];
    let lastX = -Infinity;
    for (let i = Math.max(0, inForce(steps, this.fromNs)); i < times.length && times[i] <= this.toNs; ++i) {
      const x = Math.max(this.left, this.x(times[i]));
      if (x - lastX < 0.5 && i + 1 < times.length && times[i + 1] <= this.toNs) continue;
      lastX = x;
      path.push(path.length === 0 ? `M${x.toFixed(1)} ${y(values[i]).toFixed(1)}`
        : `H${x.toFixed(1)}V${y(values[i]).toFixed(1)}`);
    }
    if (path.length > 0) path.push(`H${Math.min(this.width, this.x(this.report.endNs)).toFixed(1)}`);
    return path.join('');
  }

  // The whole run in one strip: late frames of the first row, and what is in view.
  drawOverview() {
    const width = this.width;
    const height = 26;
    const scale = (width - 1) / this.report.endNs;
    const root = svg('svg', { viewBox: `0 0 ${width} ${height}` });
    const first = this.rows.find((row) => row.kind === 'track');
    if (first) {
      const bars = [];
      const marks = [];
      const binNs = 3 / scale;
      for (let x = 0; x < width; x += 3) {
        const from = x / scale;
        const late = countBelow(first.track.lateTimes, from + binNs) - countBelow(first.track.lateTimes, from);
        const frames = countBelow(first.track.showTimes, from + binNs) - countBelow(first.track.showTimes, from);
        if (frames > 0) bars.push(`M${x} 24h2v-2h-2Z`);
        if (late > 0) marks.push(`M${x} 22h2v${-Math.min(18, 5 + 4 * late)}h-2Z`);
      }
      root.append(svg('path', { class: 'overview-frames', d: bars.join('') }),
        svg('path', { class: 'overview-late', d: marks.join('') }));
    }
    root.append(svg('rect', { class: 'window', x: this.fromNs * scale + 0.75, y: 0.75,
      width: Math.max(3, (this.toNs - this.fromNs) * scale - 1.5), height: height - 1.5 }));
    this.overview.replaceChildren(root);
  }

  onOverview(event) {
    event.preventDefault();
    const box = this.overview.getBoundingClientRect();
    const centre = this.report.endNs * (event.clientX - box.left) / box.width;
    const half = (this.toNs - this.fromNs) / 2;
    this.show(centre - half, centre + half);
  }

  // Pointing.

  placeOf(event) {
    const box = this.plot.getBoundingClientRect();
    return { x: event.clientX - box.left, y: event.clientY - box.top };
  }

  // The row, time and frame at a place of the drawing; null beside the rows.
  at({ x, y }) {
    if (x < this.left) return null;
    const time = this.timeAt(x);
    const row = this.rows.find((one) => one.kind !== 'layer' && y >= one.y && y < one.y + one.height) || null;
    if (!row || row.kind !== 'track') return { row, time, frame: -1, y };
    const { track } = row;
    const lane = y - row.y;
    let frame = -1;
    if (lane < LANE.waiting - 1) frame = track.drawnAt(time);
    else if (lane < LANE.screen - 4) frame = track.waitingAt(time);
    else frame = track.shownAt(time);
    return { row, time, frame };
  }

  onMove(event) {
    const place = this.placeOf(event);
    const before = this.pointers.get(event.pointerId);
    if (before) {
      this.drag(event.pointerId, before, place);
    } else if (event.pointerType !== 'touch') {
      this.pointer = this.at(place);
      this.tell();
    }
  }

  drag(id, before, place) {
    this.pointers.set(id, { ...place, moved: before.moved + Math.abs(place.x - before.x) });
    if (this.pointers.size === 1) {
      const by = (before.x - place.x) / this.scale;
      if (by !== 0) this.show(this.fromNs + by, this.toNs + by);
      return;
    }
    const other = [...this.pointers].find(([key]) => key !== id)[1];
    const wasApart = Math.abs(before.x - other.x);
    const apart = Math.abs(place.x - other.x);
    if (wasApart > 10 && apart > 10) this.zoom(wasApart / apart, this.timeAt((place.x + other.x) / 2));
  }

  onDown(event) {
    if (event.button !== 0) return;
    this.plot.setPointerCapture(event.pointerId);
    this.pointers.set(event.pointerId, { ...this.placeOf(event), moved: 0 });
  }

  onUp(event) {
    const last = this.pointers.get(event.pointerId);
    this.pointers.delete(event.pointerId);
    const CLICK_PIXELS = 4;
    if (!last || last.moved > CLICK_PIXELS || event.type !== 'pointerup') return;
    this.cursor = this.at(this.placeOf(event));
    this.pointer = null;
    this.tell();
  }

  // The page scrolls with the wheel alone; with Ctrl it zooms, sideways it pans.
  onWheel(event) {
    if (event.ctrlKey || event.metaKey) {
      event.preventDefault();
      this.zoom(Math.exp(event.deltaY * 0.003), this.timeAt(this.placeOf(event).x));
    } else if (event.shiftKey || Math.abs(event.deltaX) > Math.abs(event.deltaY)) {
      event.preventDefault();
      const by = (event.deltaX || event.deltaY) / this.scale;
      this.show(this.fromNs + by, this.toNs + by);
    }
  }

  onKey(event) {
    const keys = {
      ArrowRight: () => this.step(1), ArrowLeft: () => this.step(-1),
      ArrowDown: () => this.changeRow(1), ArrowUp: () => this.changeRow(-1),
      Home: () => this.stepTo(0), End: () => this.stepTo(Infinity),
      '+': () => this.zoom(0.5), '=': () => this.zoom(0.5), '-': () => this.zoom(2),
      PageDown: () => this.pan(0.8), PageUp: () => this.pan(-0.8),
      0: () => this.show(0, this.report.endNs),
      l: () => this.nextLate(1), L: () => this.nextLate(-1),
      Escape: () => { this.cursor = null; this.tell(); },
    };
    const action = keys[event.key];
    if (!action || event.ctrlKey || event.metaKey || event.altKey) return;
    event.preventDefault();
    this.pointer = null;
    action();
  }

  tracks() { return this.rows.filter((row) => row.kind === 'track'); }

  currentRow() {
    if (this.cursor && this.cursor.row && this.cursor.row.kind === 'track') return this.cursor.row;
    return this.tracks()[0];
  }

  choose(row, frame) {
    const { track } = row;
    const isShown = !Number.isNaN(track.shown[frame]);
    this.cursor = { row, frame, time: isShown ? track.shown[frame] : track.start[frame] };
    const end = isShown ? track.shown[frame] : track.letGo[frame];
    if (track.start[frame] < this.fromNs || end > this.toNs) {
      const half = (this.toNs - this.fromNs) / 2;
      const centre = (track.start[frame] + end) / 2;
      this.show(centre - half, centre + half);
    } else {
      this.tell();
    }
  }

  step(by) {
    const row = this.currentRow();
    if (!row || row.track.count === 0) return;
    const from = this.cursor && this.cursor.frame >= 0 ? this.cursor.frame + by
      : row.track.nearest(this.cursor ? this.cursor.time : this.fromNs);
    this.choose(row, Math.min(row.track.count - 1, Math.max(0, from)));
  }

  stepTo(frame) {
    const row = this.currentRow();
    if (row && row.track.count > 0) this.choose(row, Math.min(row.track.count - 1, frame));
  }

  // The same frame in another row, or another layer's at the same time.
  changeRow(by) {
    const tracks = this.tracks();
    const row = this.currentRow();
    if (!row) return;
    if (!this.cursor || this.cursor.frame < 0) return this.step(0);
    const next = tracks[Math.min(tracks.length - 1, Math.max(0, tracks.indexOf(row) + by))];
    if (next.track.count === 0) return undefined;
    const same = next.layer === row.layer
      ? next.track.ofNumber(row.track.number[this.cursor.frame]) : -1;
    return this.choose(next, same >= 0 ? same : next.track.nearest(this.cursor.time));
  }

  nextLate(by) {
    const row = this.currentRow();
    if (!row || row.track.lateTimes.length === 0) {
      this.readout.textContent = 'No frame of this row is late.';
      return;
    }
    const { lateTimes, lateFrames } = row.track;
    const time = this.cursor ? this.cursor.time : this.fromNs - 1;
    const position = by > 0 ? countUntil(lateTimes, time) : countBelow(lateTimes, time) - 1;
    const found = (position + lateTimes.length) % lateTimes.length;  // round the ends
    // Close enough to see it among its neighbours.
    const AROUND_NS = 400e6;
    if (!this.detailed) this.show(lateTimes[found] - AROUND_NS / 2, lateTimes[found] + AROUND_NS / 2);
    this.choose(row, lateFrames[found]);
  }

  // The readout.

  tell() {
    const place = this.pointer || this.cursor;
    if (!this.line) return;
    const isInView = place && place.time >= this.fromNs && place.time <= this.toNs;
    const x = isInView ? this.x(place.time) : -10;
    this.line.setAttribute('x1', x);
    this.line.setAttribute('x2', x);
    this.mark.replaceChildren(...(place && place.frame >= 0 ? this.selection(place) : []));
    this.readout.classList.toggle('idle', !place);
    if (!place) {
      this.readout.replaceChildren('Point at a frame, or press an arrow key, for its times.');
    } else if (place.frame >= 0) {
      this.readout.replaceChildren(...this.frameText(place));
    } else {
      this.readout.replaceChildren(...this.momentText(place));
    }
  }

  // A frame's way through the lanes.
  selection({ row, frame }) {
    const { track, y } = row;
    const boxOf = (fromNs, toNs, top, height) => {
      const from = Math.max(this.left, this.x(fromNs));
      const to = Math.min(this.width, this.x(toNs));
      return to < this.left || from > this.width ? null
        : svg('rect', { x: from, y: top - 1, width: Math.max(1, to - from), height: height + 2 });
    };
    const boxes = [boxOf(track.start[frame], track.letGo[frame], y + LANE.producer, PRODUCER_HEIGHT),
      boxOf(track.letGo[frame], track.latch[frame], y + LANE.waiting, WAITING_HEIGHT)];
    if (!Number.isNaN(track.shown[frame])) {
      const position = countUntil(track.showTimes, track.shown[frame]) - 1;
      boxes.push(boxOf(track.shown[frame], track.showEnd(position), y + LANE.screen, SCREEN_HEIGHT));
    }
    return boxes.filter((box) => box !== null);
  }

  frameText({ row, frame }) {
    const { track, layer } = row;
    const isShown = !Number.isNaN(track.shown[frame]);
    const tags = [];
    if (track.late[frame]) tags.push(html('span', { class: 'tag worse' }, 'late'));
    if (track.dropped[frame]) tags.push(html('span', { class: 'tag worse' }, 'dropped'));
    if (track.letGo[frame] > track.queue[frame]) tags.push(html('span', { class: 'tag' }, 'held back'));
    const item = (name, value) => html('div', {}, html('dt', {}, name), html('dd', {}, value));
    const items = [
      item('Drawing began', seconds(track.start[frame], 4)),
      item('Drawing', millis(track.queue[frame] - track.start[frame])),
      item('Held back', millis(track.letGo[frame] - track.queue[frame])),
      item('Waited', millis(track.latch[frame] - track.letGo[frame])),
      item('Shown', isShown ? seconds(track.shown[frame], 4) : track.dropped[frame] ? 'never: dropped' : 'not before the end'),
    ];
    if (isShown) {
      items.push(item('From the latch to the screen', millis(track.shown[frame] - track.latch[frame])));
      items.push(item('Latency', millis(track.latency(frame))));
      items.push(item('Interval', isKnown(track.interval[frame]) ? millis(track.interval[frame]) : 'first, or after a pause'));
    }
    const elsewhere = this.report.policies.filter((policy) => policy !== track.policy).map((policy) => {
      const other = layer.tracks.get(policy);
      const same = other.ofNumber(track.number[frame]);
      const value = same < 0 || Number.isNaN(other.shown[same]) ? '\u2013' : millis(other.latency(same));
      return `${policy} ${value}`;
    });
    if (elsewhere.length > 0) items.push(item('Its latency elsewhere', elsewhere.join(', ')));
    return [
      html('p', {}, html('b', {}, `${track.policy}, frame ${counted(track.number[frame] + 1)}`), ' of ',
        html('bdi', {}, shortened(layer.name, 60)), ' ', tags),
      html('dl', {}, items),
    ];
  }

  momentText({ row, time }) {
    const parts = [html('b', {}, seconds(time, 4))];
    if (row && row.kind === 'headroom') {
      const i = inForce(row.steps, time);
      parts.push(i < 0 ? ' \u00b7 no headroom in force yet'
        : ` \u00b7 headroom in force ${millis(row.steps.values[i])}, since ${seconds(row.steps.times[i])}`);
    } else if (row && row.kind === 'fps') {
      const window = inForce(row.windows, time);
      const mode = inForce(row.modes, time);
      parts.push(window < 0 ? ' \u00b7 no rate measured yet'
        : ` \u00b7 ${fixed(row.windows.values[window], 2)} frames/s in the window that ended at ${seconds(row.windows.times[window])}`,
      mode < 0 ? ', no mode yet' : `, mode ${row.modes.values[mode]} since ${seconds(row.modes.times[mode])}`);
    } else if (row) {
      parts.push(` \u00b7 ${row.track.policy}: nothing here`);
    }
    const NEAR_PIXELS = 6;
    const near = [...this.marks.touches, ...this.marks.changes]
      .filter((mark) => Math.abs(mark.atNs - time) * this.scale < NEAR_PIXELS);
    for (const mark of near.slice(0, 4)) parts.push(` \u00b7 ${mark.text} at ${seconds(mark.atNs)}`);
    return [html('p', {}, parts)];
  }
}
