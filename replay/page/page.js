// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The page: reads the report that it carries, and fills its sections in the order in which a tuning
// engineer asks: is it better, where, how often, can the model be trusted, what was set.

const POLICY_TEXTS = {
  library: 'the library decides, through its exported hooks',
  none: 'nothing is delayed, as on the recorded phone',
  interval: 'frames start a fixed number of vsyncs apart, as with a swap interval',
  shallow: 'at most one buffer waits in the queue',
};

// The figures that answer whether it is better.
const KEY_FIGURES = ['latency-p50', 'latency-p95', 'late-frames', 'dropped-frames', 'fps',
  'interval-deviation'];

// More tables than these are made only when their layer is chosen.
const EAGER_TABLES = 8;

class Page {
  constructor(report) {
    this.report = report;
    this.layer = report.layersWithFigures[0] || null;
    this.against = report.others.includes('none') ? 'none' : report.others[0];
    this.charts = [];
    this.tables = new Map();
  }

  body(section) { return document.querySelector(`#${section} .body`); }

  fill() {
    this.fillHead();
    if (this.report.comparison && this.layer) {
      this.fillControls();
      this.fillComparison();
      this.timeline = new Timeline(this.report);
      this.body('timeline').append(this.timeline.element);
      this.charts.push(this.timeline);
      this.chooseLayer();
    } else {
      this.withoutComparison();
    }
    this.fillFit();
    this.fillLibrary();
    this.fillSettings();
    this.redrawOnResize();
  }

  withoutComparison() {
    const { comparison } = this.report;
    const hidden = ['summary', 'controls', 'timeline', 'distributions', ...(comparison ? [] : ['fit'])];
    for (const id of hidden) document.getElementById(id).hidden = true;
    this.body('comparison').append(html('p', {}, comparison
      ? 'There is nothing to compare: no layer of the recording has enough frames.'
      : 'Nothing is compared: buffers were queued at their recorded times, whatever the library did.'));
  }

  fillHead() {
    const { document: doc } = this.report;
    const { recording, replay, scenario } = doc;
    const name = fileName(recording.file);
    document.title = `Replay of ${name}`;
    const facts = [
      seconds(recording.durationNs, 2),
      `display at ${hertz(recording.vsyncPeriodNs)} (${millis(recording.vsyncPeriodNs)})`,
      plural(doc.layers.length, 'layer'),
      `${counted(recording.frames)}\u00a0frame${recording.frames === 1 ? '' : 's'}`,
      replay.stopped ? 'stopped before its end'
        : replay.repeat === 1 ? 'played once' : `played ${replay.repeat} times`,
    ];
    const head = document.getElementById('head');
    head.append(html('h1', {}, html('bdi', {}, name)), html('p', { class: 'facts' }, facts.join(' \u00b7 ')));
    if (scenario && scenario.description) head.append(html('p', {}, shown(scenario.description)));
    const badFits = this.report.layersWithFigures.filter((layer) => !layer.fit.good);
    for (const layer of badFits) {
      head.append(html('p', { class: 'warning' }, html('b', {}, 'The model fits badly: '),
        `only ${percent(layer.fit.share)} of the latches of `, html('bdi', {}, shortened(layer.name, 60)),
        ` are at their recorded vsync, so trust its figures little. ${shown(layer.fit.likelyReason)}`));
    }
    for (const note of doc.notes) head.append(html('p', { class: 'warning' }, html('b', {}, 'Note: '), shown(note)));
  }

  // Controls: which layer, and on narrow screens what the library is compared with.
  fillControls() {
    const controls = document.getElementById('controls');
    const { layersWithFigures, others, hasLibrary } = this.report;
    if (layersWithFigures.length > 1) {
      const select = html('select', { id: 'layer', onchange: (event) => {
        this.layer = layersWithFigures[Number(event.target.value)];
        this.chooseLayer();
      } }, layersWithFigures.map((layer, i) => html('option', { value: i }, shortened(layer.name, 56))));
      controls.append(html('label', {}, 'Layer ', select));
    }
    if (hasLibrary && others.length > 1) {
      const choices = others.map((policy) => html('label', {}, html('input', {
        type: 'radio', name: 'against', value: policy, checked: policy === this.against,
        onchange: () => { this.against = policy; this.chooseAgainst(); } }), policy));
      controls.append(html('fieldset', {}, html('legend', {}, 'Compared with'), choices));
    }
    controls.hidden = controls.childElementCount === 0;
  }

  chooseLayer() {
    for (const [layer, table] of this.tables) table.hidden = layer !== this.layer;
    if (!this.tables.has(this.layer)) this.addTable(this.layer);
    const others = this.report.layersWithFigures.filter((layer) => layer !== this.layer);
    this.timeline.setLayers([this.layer, ...others].slice(0, MOST_LAYERS));
    this.fillDistributions();
    this.chooseAgainst();
  }

  chooseAgainst() {
    document.body.dataset.against = this.against || '';
    for (const cell of document.querySelectorAll('#comparison [data-against]')) {
      cell.classList.toggle('chosen', cell.dataset.against === this.against);
    }
    this.fillSummary();
  }

  figuresOf(policy, layer = this.layer) { return this.report.figuresOf(policy, layer); }

  verdictTag(figure, own, other) {
    const verdict = judgement(figure, own, other);
    return verdict ? html('span', { class: `tag ${verdict}` }, verdict) : null;
  }

  fillSummary() {
    const { report, against } = this;
    const summary = document.getElementById('summary');
    if (!report.hasLibrary || !against) {
      summary.replaceChildren(html('p', { class: 'note' },
        'The library was not run; the policies below stand alone.'));
      return;
    }
    const own = this.figuresOf('library');
    const other = this.figuresOf(against);
    const tiles = KEY_FIGURES.map((key) => report.figures.find((figure) => figure.key === key))
      .map((figure) => {
        const difference = own[figure.jsonKey] - other[figure.jsonKey];
        return html('div', { class: 'tile' }, html('h3', {}, figure.label),
          html('p', { class: 'value' }, figureText(figure, own[figure.jsonKey])),
          html('p', { class: 'from' }, `${against} ${figureText(figure, other[figure.jsonKey])}`),
          html('p', { class: 'change' }, `${differenceText(figure, difference).replace(/^=$/, 'no change')} `,
            this.verdictTag(figure, own[figure.jsonKey], other[figure.jsonKey])));
      });
    summary.replaceChildren(html('p', { class: 'note' }, 'With the library, against ',
      html('b', {}, against), ', for ', html('bdi', {}, shortened(this.layer.name, 72))),
    html('div', { class: 'tiles' }, tiles));
  }

  fillComparison() {
    const body = this.body('comparison');
    this.tableArea = html('div', {});
    body.append(this.tableArea);
    for (const layer of this.report.layersWithFigures.slice(0, EAGER_TABLES)) this.addTable(layer);
    const policies = this.report.comparison.policies;
    body.append(
      html('dl', { class: 'policies' }, policies.map((policy) => html('div', {},
        html('dt', {}, policy.name), html('dd', {}, POLICY_TEXTS[policy.name] || '',
          policy.name === 'library' ? html('span', {
            'data-policy': 'library', 'data-key': 'serviceCalls', 'data-value': policy.serviceCalls },
          `; ${plural(policy.serviceCalls, 'call')} to the performance service`) : null)))),
      html('p', { class: 'note' }, 'Latency counts from the start of a frame\u2019s drawing, when the '
        + 'application samples its input, to the vsync that shows it; holding counts in full. A frame is '
        + 'late when it is shown more vsyncs after the one before than intended. Every figure is counted '
        + 'from the frames of the model.'));
  }

  addTable(layer) {
    const table = this.tableOf(layer);
    table.hidden = layer !== this.layer;
    this.tables.set(layer, table);
    this.tableArea.append(table);
  }

  tableOf(layer) {
    const { report } = this;
    const head = [html('th', { scope: 'col' }, 'Figure')];
    if (report.hasLibrary) head.push(html('th', { scope: 'col', class: 'own' }, 'library'));
    for (const policy of report.others) {
      head.push(html('th', { scope: 'col', class: 'baseline', 'data-against': policy }, policy));
      if (report.hasLibrary) {
        head.push(html('th', { scope: 'col', class: 'change', 'data-against': policy },
          html('span', { class: 'long' }, 'library\u2019s '), 'change'));
      }
    }
    const rows = report.figures.map((figure) => this.tableRow(layer, figure));
    return html('div', { class: 'table' },
      html('h3', {}, html('bdi', {}, shown(layer.name))),
      html('p', { class: 'note' }, this.fitLine(layer)),
      html('table', { class: report.hasLibrary ? 'figures with-library' : 'figures' },
        html('thead', {}, html('tr', {}, head)), html('tbody', {}, rows)));
  }

  fitLine(layer) {
    const meant = plural(layer.intendedVsyncs, 'vsync');
    return `${layer.producer} (${shown(layer.producerReason)}), ${layer.buffers} buffers, a frame every `
      + `${meant} intended; ${layer.fit.latches === 0 ? 'no latch is recorded to fit the model to'
        : `the model gives back ${percent(layer.fit.share)} of the recorded latches`}`;
  }

  tableRow(layer, figure) {
    const { report } = this;
    const valueOf = (policy) => this.figuresOf(policy, layer)[figure.jsonKey];
    const cell = (policy, own) => html('td', {
      class: own ? 'own' : 'baseline', 'data-layer': layer.index, 'data-policy': policy,
      'data-key': figure.jsonKey, 'data-value': valueOf(policy),
      'data-against': own ? null : policy }, figureText(figure, valueOf(policy)));
    const cells = [];
    if (report.hasLibrary) cells.push(cell('library', true));
    for (const policy of report.others) {
      cells.push(cell(policy, false));
      if (!report.hasLibrary) continue;
      const own = valueOf('library');
      const other = valueOf(policy);
      const share = other === 0 ? '' : percent((own - other) / other, 0);
      const shareText = /[1-9]/.test(share) ? ` (${own > other ? '+' : ''}${share})` : '';
      const text = differenceText(figure, own - other);
      cells.push(html('td', { class: `change ${judgement(figure, own, other)}`, 'data-against': policy },
        text, text === '=' ? null : html('span', { class: 'share' }, shareText), ' ',
        this.verdictTag(figure, own, other)));
    }
    const isEmpty = report.policies.every((policy) => valueOf(policy) === 0);
    return html('tr', { class: isEmpty ? 'empty' : '' }, html('th', { scope: 'row' }, figure.label), cells);
  }

  fillDistributions() {
    const { report, layer } = this;
    const latency = latencyHistogram(layer, report.policies);
    const rates = [report.comparison.vsyncPeriodNs,
      ...(report.document.recording.rateChanges || []).map((change) => change.vsyncPeriodNs)];
    const interval = intervalHistogram(layer, report.policies, Math.min(...rates));
    const histograms = [latency, interval].filter((chart) => chart !== null);
    this.charts = [this.timeline, ...histograms];
    this.body('distributions').replaceChildren(
      html('p', { class: 'note' }, html('bdi', {}, shortened(layer.name, 90))),
      html('div', { class: 'pair' }, histograms.map((chart) => chart.element)));
    for (const chart of histograms) chart.draw();
  }

  fillFit() {
    const { report } = this;
    const section = this.body('fit');
    if (!report.comparison) return;
    section.append(html('p', {}, 'Before anything is compared, the model plays the recording without any '
      + 'pacing and has to give it back. At least 95\u00a0% of the latches should fall on their recorded vsync.'));
    const head = ['Layer', 'Producer', 'Buffers', 'Latch offset', 'GPU work', 'Latches on their vsync',
      'Queue times off by p50', 'p95', 'Fit'];
    const texts = ['Layer', 'Producer'];
    const rows = report.layers.map((layer) => html('tr', {},
      html('th', { scope: 'row' }, html('bdi', {}, shortened(layer.name, 56))),
      html('td', { class: 'text' }, `${layer.producer}: ${shown(layer.producerReason)}`),
      html('td', {}, layer.buffers), html('td', {}, millis(layer.latchOffsetNs)),
      html('td', {}, millis(layer.gpuNs)),
      html('td', { 'data-layer': layer.index, 'data-fit': 'share', 'data-value': layer.fit.share },
        layer.fit.latches === 0 ? 'none recorded'
          : `${percent(layer.fit.share)} (${layer.fit.onVsync} of ${layer.fit.latches})`),
      html('td', { 'data-layer': layer.index, 'data-fit': 'queueP50Ns', 'data-value': layer.fit.queueP50Ns },
        millis(layer.fit.queueP50Ns)),
      html('td', { 'data-layer': layer.index, 'data-fit': 'queueP95Ns', 'data-value': layer.fit.queueP95Ns },
        millis(layer.fit.queueP95Ns)),
      html('td', {}, html('span', { class: layer.fit.good ? 'tag better' : 'tag worse' },
        layer.fit.latches === 0 ? 'not known' : layer.fit.good ? 'good' : 'bad'))));
    section.append(this.wide(html('table', {}, html('thead', {}, html('tr', {},
      head.map((text) => html('th', { scope: 'col', class: texts.includes(text) ? 'text' : '' }, text)))),
    html('tbody', {}, rows))));
    if (report.comparison.assumptions.length > 0) {
      section.append(html('h3', {}, 'Assumed, since the recording does not tell'),
        html('ul', {}, report.comparison.assumptions.map((text) => html('li', {}, shown(text)))));
    }
    for (const share of report.comparison.gpuShares) {
      section.append(html('p', {}, `A boost shortens the last ${percent(share.share, 0)} of the work of `,
        html('bdi', {}, shortened(report.layers[share.layer].name, 56)),
        `, recorded at ${share.baseFreqMHz}\u00a0MHz.`));
    }
    if (report.comparison.gpuShares.length === 0) {
      section.append(html('p', { class: 'note' }, 'No GPU share is given: boosts are counted, but shorten no frame.'));
    }
  }

  // A table that may be wider than a phone scrolls by itself.
  wide(table) { return html('div', { class: 'wide', tabindex: 0, role: 'region', 'aria-label': 'Table' }, table); }

  fillLibrary() {
    const doc = this.report.document;
    const section = this.body('library');
    const head = ['Layer', 'Package', 'Game', 'Frames', 'Candidate', 'Tracked', 'FPS, last', 'Mode', 'Features'];
    const texts = ['Layer', 'Package', 'Game', 'Features'];
    const time = (ns) => isKnown(ns) ? seconds(ns, 2) : '\u2013';
    const rows = doc.layers.map((layer) => html('tr', {},
      html('th', { scope: 'row' }, html('bdi', {}, shortened(layer.name, 48))),
      html('td', { class: 'text' }, layer.package ? html('bdi', {}, shortened(layer.package, 40)) : '\u2013'),
      html('td', { class: 'text' }, layer.game === null ? '\u2013' : layer.game ? 'yes' : 'no'),
      html('td', {}, counted(layer.frames)), html('td', {}, time(layer.candidateNs)),
      html('td', {}, time(layer.promotedNs)),
      html('td', {}, isKnown(layer.fps) ? `${fixed(layer.fps, 2)}/s` : '\u2013'),
      html('td', {}, isKnown(layer.fpsMode) && layer.fpsMode >= 0 ? layer.fpsMode : '\u2013'),
      html('td', { class: 'text' }, this.featuresText(layer.features))));
    section.append(this.wide(html('table', {}, html('thead', {}, html('tr', {},
      head.map((text) => html('th', { scope: 'col', class: texts.includes(text) ? 'text' : '' }, text)))),
    html('tbody', {}, rows))));
    if (doc.complaints.length > 0) {
      section.append(html('h3', {}, 'Warnings in its log'), html('ul', {}, doc.complaints.map((one) =>
        html('li', {}, `${one.count}\u00d7 `, html('code', {}, shown(one.text))))));
    }
  }

  featuresText(features) {
    const names = { headroom: 'headroom', targetFps: 'target FPS', frameRescue: 'frame rescue' };
    const texts = [];
    for (const [key, name] of Object.entries(names)) {
      const { switches } = features[key];
      if (switches.length === 0) continue;
      const on = switches.filter((one) => one.on).length;
      texts.push(`${name} on from ${seconds(switches[0].atNs, 2)}${on > 1 ? `, ${on} times` : ''}`
        + (switches.at(-1).on ? '' : `, off at ${seconds(switches.at(-1).atNs, 2)}`));
    }
    return texts.length > 0 ? texts.join('; ') : 'none came on';
  }

  fillSettings() {
    const doc = this.report.document;
    const section = this.body('settings');
    const facts = [['Recording', shown(doc.recording.file)]];
    if (doc.recording.rateSource) facts.push(['Display\u2019s rate told by', shown(doc.recording.rateSource)]);
    facts.push(['Scenario', doc.scenario ? shown(doc.scenario.file || doc.scenario) : 'none']);
    if (doc.scenario && doc.scenario.description) facts.push(['What it is for', shown(doc.scenario.description)]);
    facts.push(['Passes', doc.replay.repeat]);
    section.append(html('dl', { class: 'facts-list' }, facts.map(([name, value]) =>
      html('div', {}, html('dt', {}, name), html('dd', {}, value)))));
    const { settings } = doc;
    if (!settings) return;
    this.addSettingsTable(section, 'Games', ['Package', 'Weight'],
      settings.games.map((game) => [game.package, game.weight]), 'No package is a game.');
    this.addSettingsTable(section, 'Properties in force', ['Property', 'Value', 'Set by'],
      settings.properties.map((one) => [one.name, one.value === '' ? '(empty)' : one.value,
        one.from]), 'None was read.');
    this.addSettingsTable(section, 'Configuration by the service\u2019s callback',
      ['At', 'Hint', 'Package', 'Arguments', 'Values'],
      settings.callbacks.map((call) => [call.atNs === null ? 'before the first frame' : seconds(call.atNs),
        call.hint, call.package, `${call.arg1}, ${call.arg2}`, call.values.join(', ')]), 'None was sent.');
    const events = settings.events.map((event) => [seconds(event.atNs), event.touch !== undefined
      ? `touch ${event.touch}` : event.property !== undefined
        ? `${event.property} = ${event.value}` : 'held buffers are let go']);
    if (events.length > 0) this.addSettingsTable(section, 'Events', ['At', 'What'], events, '');
    const fences = settings.fences.map((mark) => [mark.layer, mark.timeline, mark.first,
      mark.last === null ? 'the last' : mark.last, mark.every, mark.immediate ? 'at once' : 'with the frame\u2019s others']);
    if (fences.length > 0) {
      this.addSettingsTable(section, 'Unsignalled GPU fences',
        ['Layers named like', 'Timeline', 'From frame', 'To frame', 'Every', 'Told'], fences, '');
    }
  }

  addSettingsTable(section, title, head, rows, otherwise) {
    const MOST_ROWS = 200;
    section.append(html('h3', {}, title));
    if (rows.length === 0) {
      section.append(html('p', { class: 'note' }, otherwise));
      return;
    }
    section.append(this.wide(html('table', { class: 'texts' },
      html('thead', {}, html('tr', {}, head.map((text) => html('th', { scope: 'col' }, text)))),
      html('tbody', {}, rows.slice(0, MOST_ROWS).map((row) => html('tr', {},
        row.map((value) => html('td', {}, shown(value)))))))));
    if (rows.length > MOST_ROWS) {
      section.append(html('p', { class: 'note' }, `and ${counted(rows.length - MOST_ROWS)} more, which --json has whole`));
    }
  }

  redrawOnResize() {
    let width = document.documentElement.clientWidth;
    window.addEventListener('resize', () => {
      if (document.documentElement.clientWidth === width) return;
      width = document.documentElement.clientWidth;
      for (const chart of this.charts) chart.draw();
    });
    // All tables are printed, whichever is shown.
    window.addEventListener('beforeprint', () => {
      for (const table of this.tables.values()) table.hidden = false;
    });
    window.addEventListener('afterprint', () => {
      for (const [layer, table] of this.tables) table.hidden = layer !== this.layer;
    });
  }
}

// A fault of this page is told in it, not only in a console that nobody has open.
function fail(text) {
  const place = document.getElementById('failure');
  place.hidden = false;
  place.append(html('p', {}, `This report cannot be drawn whole: ${text}`));
  document.documentElement.dataset.state = 'failed';
}

window.addEventListener('error', (event) => fail(event.message));
window.addEventListener('unhandledrejection', (event) => fail(String(event.reason)));
document.addEventListener('securitypolicyviolation', (event) =>
  fail(`the page asked for ${event.blockedURI || event.violatedDirective}`));

const read = (id) => {
  const element = document.getElementById(id);
  const value = JSON.parse(element.textContent);
  element.remove();  // its text would stay in memory
  return value;
};

const page = new Page(new Report(read('report-data')));
page.fill();
if (document.documentElement.dataset.state !== 'failed') document.documentElement.dataset.state = 'ready';
