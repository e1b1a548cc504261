// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Distributions of one quantity under several policies: a row each, over the same bins and to the
// same scale, so that they are compared by place and height rather than by colour.

const NICE_BINS_MS = [0.1, 0.2, 0.5, 1, 2, 2.5, 5, 10, 20, 25, 50, 100, 200, 500, 1000];
const MOST_BINS = 64;

// The values of all series, ascending.
function allValues(series) {
  const all = new Float64Array(series.reduce((sum, one) => sum + one.values.length, 0));
  let at = 0;
  for (const one of series) {
    all.set(one.values, at);
    at += one.values.length;
  }
  return all.sort();
}

// Bins that hold all but the highest half percent of the values; the last one takes what is above.
function latencyBins(series) {
  const all = allValues(series);
  if (all.length === 0) return null;
  const low = all[0];
  const high = percentile(all, 99.5);
  const widthNs = NS_PER_MS * (NICE_BINS_MS.find(
    (width) => (high - low) / (width * NS_PER_MS) < MOST_BINS - 1) || NICE_BINS_MS.at(-1));
  const from = Math.floor(low / widthNs) * widthNs;
  const count = Math.min(MOST_BINS, Math.floor((high - from) / widthNs) + 1);
  return { from, widthNs, count, overflows: all.at(-1) >= from + count * widthNs };
}

// One bin per multiple of the vsync period, which intervals between shown frames are.
function intervalBins(series, periodNs) {
  const all = allValues(series);
  if (all.length === 0) return null;
  const MOST_PERIODS = 12;
  const most = Math.max(4, Math.min(MOST_PERIODS, Math.round(percentile(all, 99.9) / periodNs)));
  const from = periodNs / 2;
  return { from, widthNs: periodNs, count: most, overflows: all.at(-1) >= from + most * periodNs };
}

function binCounts(values, bins) {
  const counts = new Uint32Array(bins.count);
  for (const value of values) {
    const bin = Math.floor((value - bins.from) / bins.widthNs);
    ++counts[Math.min(bins.count - 1, Math.max(0, bin))];
  }
  return counts;
}

class Histogram {
  // `series`: policy and ascending values. `describe` gives a bin its name, `ticks` the axis.
  constructor({ title, note, series, bins, describe, tickText, percentiles }) {
    this.series = series.map((one) => ({ ...one, counts: binCounts(one.values, bins) }));
    this.bins = bins;
    this.describe = describe;
    this.tickText = tickText;
    this.percentiles = percentiles;
    this.selected = -1;
    this.readout = html('p', { class: 'readout', 'aria-live': 'polite' });
    this.drawing = html('div', {
      class: 'plot', tabindex: 0, role: 'group',
      'aria-label': `${title}. Left and right arrows go from bin to bin.`,
      onkeydown: (event) => this.onKey(event),
      onpointermove: (event) => this.onPointer(event),
      onpointerdown: (event) => this.onPointer(event),
      onpointerleave: () => this.select(-1),
    });
    this.element = html('figure', {}, html('figcaption', {}, html('h3', {}, title),
      html('p', { class: 'note' }, note)), this.drawing, this.readout);
    this.select(-1);
  }

  draw() {
    const width = this.drawing.clientWidth || 600;
    const narrow = width < 480;
    const left = narrow ? 2 : 100;
    const rowHeight = narrow ? 74 : 54;
    const top = narrow ? 10 : 8;
    const axis = 22;
    const right = 6;
    const height = top + this.series.length * rowHeight + axis;
    const { count } = this.bins;
    const step = (width - left - right) / count;
    this.geometry = { left, step };
    const most = Math.max(1, ...this.series.map((one) => Math.max(...one.counts)));
    const root = svg('svg', { viewBox: `0 0 ${width} ${height}`, 'aria-hidden': 'true' });
    this.band = svg('rect', { class: 'bin-band', y: 0, height: height - axis, width: step, x: -step });
    root.append(this.band);
    this.series.forEach((one, row) => {
      const base = top + (row + 1) * rowHeight - 4;
      const full = rowHeight - (narrow ? 36 : 20);
      const bars = [];
      one.counts.forEach((value, bin) => {
        if (value === 0) return;
        const barHeight = Math.max(1, full * value / most);
        const x = left + bin * step;
        const gap = step > 4 ? 1 : 0;
        bars.push(`M${x.toFixed(1)} ${base}V${(base - barHeight).toFixed(1)}h${(step - gap).toFixed(1)}V${base}Z`);
        if (count <= 14) {
          root.append(svg('text', {
            class: 'tiny', x: x + step / 2, y: base - barHeight - 3, 'text-anchor': 'middle',
          }, counted(value)));
        }
      });
      root.append(
        svg('path', { class: one.policy === 'library' ? 'bars own' : 'bars', d: bars.join(''),
          'data-policy': one.policy, 'data-frames': one.values.length }),
        svg('line', { class: 'base', x1: left, x2: width - right, y1: base, y2: base }),
        svg('text', {
          class: one.policy === 'library' ? 'label own' : 'label',
          x: narrow ? left : left - 8, y: narrow ? base - full - 19 : base - 2,
          'text-anchor': narrow ? 'start' : 'end',
        }, one.policy));
      if (this.percentiles && one.values.length > 0) {
        root.append(svg('text', {
          class: 'tiny', x: narrow ? width - right : left - 8, y: narrow ? base - full - 19 : base - 20,
          'text-anchor': 'end',
        }, `p95 ${millis(percentile(one.values, 95), 1)}`));
      }
      if (this.percentiles) this.drawPercentiles(root, one, base, full, width - right);
    });
    this.drawAxis(root, left, step, top + this.series.length * rowHeight, narrow);
    this.drawing.replaceChildren(root);
    this.select(this.selected);
  }

  // p50 and p95, marked by a line and its name.
  drawPercentiles(root, one, base, full, most) {
    let lastX = -Infinity;
    for (const percent of [50, 95, 99]) {
      if (one.values.length === 0) continue;
      const value = percentile(one.values, percent);
      const place = Math.min(this.bins.count, (value - this.bins.from) / this.bins.widthNs);
      const x = this.geometry.left + place * this.geometry.step;
      root.append(svg('line', { class: 'percentile', x1: x, x2: x, y1: base, y2: base - full - 2 }));
      if (x - lastX < 24) continue;
      lastX = x;
      root.append(svg('text', {
        class: 'tiny', x: Math.min(x, most - 10), y: base - full - 4, 'text-anchor': 'middle',
      }, `p${percent}`));
    }
  }

  drawAxis(root, left, step, y, narrow) {
    const every = Math.max(1, Math.ceil(72 / step));
    for (let bin = 0; bin <= this.bins.count; bin += every) {
      const text = this.tickText(bin, every === 1);
      if (text === null) continue;
      const x = left + (bin + text.at) * step;
      root.append(
        svg('line', { class: 'base', x1: x, x2: x, y1: y - 4, y2: y }),
        svg('text', { class: 'tiny', x, y: y + 11, 'text-anchor': bin === 0 && text.at === 0 ? 'start' : 'middle' },
          text.text));
    }
  }

  onPointer(event) {
    const x = event.clientX - this.drawing.getBoundingClientRect().left;
    const bin = Math.floor((x - this.geometry.left) / this.geometry.step);
    this.select(bin >= 0 && bin < this.bins.count ? bin : -1);
  }

  onKey(event) {
    const last = this.bins.count - 1;
    const moves = { ArrowLeft: Math.max(0, this.selected - 1), Home: 0, End: last,
      ArrowRight: Math.min(last, this.selected + 1), Escape: -1 };
    if (!(event.key in moves)) return;
    event.preventDefault();
    this.select(moves[event.key]);
  }

  select(bin) {
    this.selected = bin;
    if (this.band) {
      this.band.setAttribute('x', bin < 0 ? -1000 : this.geometry.left + bin * this.geometry.step);
    }
    if (bin < 0) {
      this.readout.replaceChildren('Point at a bar, or move with the arrow keys, for its numbers.');
      this.readout.classList.add('idle');
      return;
    }
    this.readout.classList.remove('idle');
    const parts = this.series.map((one) => {
      const total = one.values.length || 1;
      return ` \u00b7 ${one.policy} ${plural(one.counts[bin], 'frame')} (${percent(one.counts[bin] / total)})`;
    });
    this.readout.replaceChildren(html('b', {}, this.describe(bin)), ...parts);
  }
}

function latencyHistogram(layer, policies) {
  const series = policies.map((policy) => ({
    policy, values: layer.tracks.get(policy).latencies() }));
  const bins = latencyBins(series);
  if (!bins) return null;
  const edge = (bin) => fixed((bins.from + bin * bins.widthNs) / NS_PER_MS,
    bins.widthNs < NS_PER_MS ? 1 : 0);
  const isLast = (bin) => bins.overflows && bin === bins.count - 1;
  return new Histogram({
    title: 'Latency',
    note: `From the start of a frame\u2019s drawing to the vsync that shows it; bars ${fixed(bins.widthNs / NS_PER_MS, bins.widthNs < NS_PER_MS ? 1 : 0)}\u00a0ms wide, height: frames.`,
    series, bins, percentiles: true,
    describe: (bin) => isLast(bin) ? `${edge(bin)}\u00a0ms and more`
      : `${edge(bin)} to ${edge(bin + 1)}\u00a0ms`,
    tickText: (bin) => ({ at: 0, text: `${edge(bin)}\u00a0ms` }),
  });
}

function intervalHistogram(layer, policies, periodNs) {
  const series = policies.map((policy) => ({
    policy, values: layer.tracks.get(policy).intervals() }));
  const bins = intervalBins(series, periodNs);
  if (!bins) return null;
  const isLast = (bin) => bins.overflows && bin === bins.count - 1;
  return new Histogram({
    title: 'Frame intervals',
    note: `Between frames shown one after the other, in vsync periods of ${millis(periodNs)}; height: frames.`,
    series, bins, percentiles: false,
    describe: (bin) => `${bin + 1} vsync${bin === 0 ? '' : 's'} (${isLast(bin) ? 'from ' : ''}${millis((bin + 1) * periodNs, 1)}${isLast(bin) ? ' on' : ''})`,
    tickText: (bin) => bin === bins.count ? null
      : { at: 0.5, text: `${bin + 1}\u00d7${isLast(bin) ? ' +' : ''}` },
  });
}
