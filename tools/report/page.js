// Draws the charts of the report. Every text here comes from processes that nobody trusts: it reaches the page
// through textContent only, and the chart library never sees it.
//
// All times are milliseconds before the end of the report, so they are zero or negative.
(() => {
  'use strict';
  const data = JSON.parse(document.getElementById('data').textContent);
  const COLORS = ['#3b82c4', '#d9822b', '#2e9e6b', '#c0504d', '#8e6bbf', '#a08a2c', '#4aa5b5', '#c45f9a'];
  const LEFT_PX = Math.min(130, Math.max(70, window.innerWidth / 8));
  const RIGHT_PX = 12;
  // The library's other parts write labels as HTML, or styles that the page's policy forbids.
  Dygraph.PLUGINS = [Dygraph.Plugins.Grid, Dygraph.Plugins.Axes];
  const plots = document.getElementById('plots');
  const whole = [data.begin, 0];
  let shown = whole;
  const charts = [];  // {chart, graph, values}
  const lanes = [];   // {track, name, bars: [{element, from, to}]}

  const make = (tag, parent, className, text) => {
    const element = document.createElement(tag);
    if (className) element.className = className;
    if (text !== undefined) element.textContent = text;
    parent.append(element);
    return element;
  };

  // --- Texts of times and values

  // "−4.2 s", from a minute on "−1:04". The sign is a real minus, as in the tables.
  const offsetText = (ms) => {
    const tenths = Math.round(Math.abs(ms) / 100);
    const seconds = tenths / 10;
    if (tenths === 0) return '0 s';
    if (seconds < 60) return `−${seconds} s`;
    const rest = (seconds % 60).toFixed(tenths % 10 ? 1 : 0);
    return `−${Math.floor(seconds / 60)}:${rest.padStart(tenths % 10 ? 4 : 2, '0')}`;
  };
  const wallText = (ms) => new Date(data.endWall + ms).toISOString().slice(11, 21) + ' UTC';
  // A dash is no value. KiB grow into MiB and GiB, all other numbers keep their unit.
  const valueText = (value, unit) => {
    if (value === undefined || value === null) return '–';
    if (unit === 'KiB') return value >= 1048576 ? `${(value / 1048576).toFixed(2)} GiB` : `${(value / 1024).toFixed(1)} MiB`;
    return `${Math.round(value * 100) / 100}${unit ? ' ' + unit : ''}`;
  };

  const STEPS = [100, 200, 500, 1000, 2000, 5000, 10000, 15000, 30000, 60000, 120000, 300000, 600000, 1800000, 3600000];
  // About 90 pixels apart, so that labels do not touch, and on round times before the end.
  const ticks = (from, to, pixels) => {
    const least = (to - from) / Math.max(2, pixels / 90);
    const step = STEPS.find((s) => s >= least) || 86400000;
    const result = [];
    for (let t = Math.ceil(from / step) * step; t <= to; t += step) result.push({v: t, label: offsetText(t)});
    return result;
  };

  // --- Charts

  // One row for each time of any line. The library joins points over null, and breaks the line at NaN.
  // Lines of one chart may come from sources with different periods, so a row has a value for some lines only.
  const rowsOf = (lines) => {
    const rows = new Map();
    lines.forEach((line, i) => {
      for (const [t, value] of line.points) {
        if (!rows.has(t)) rows.set(t, [t, ...lines.map(() => null)]);
        rows.get(t)[i + 1] = value === null ? NaN : value;
      }
    });
    return [...rows.values()].sort((a, b) => a[0] - b[0]);
  };

  // Drawn below the lines: grey for the times that nobody saw, and a thin line for each change of a key.
  const shadeGaps = (context, area, graph) => {
    context.fillStyle = 'rgba(128, 128, 128, .3)';
    for (const gap of data.gaps) {
      const left = Math.max(area.x, graph.toDomXCoord(gap.from));
      const right = Math.min(area.x + area.w, graph.toDomXCoord(gap.to));
      if (right > left) context.fillRect(left, area.y, right - left, area.h);
    }
    context.fillStyle = 'rgba(128, 128, 128, .4)';
    for (const lane of data.lanes) {
      for (const change of lane.changes) {
        const x = graph.toDomXCoord(change.at);
        if (!change.known && x >= area.x && x <= area.x + area.w) context.fillRect(x, area.y, 1, area.h);
      }
    }
  };

  // The caption is made here and not by the library, which writes labels as HTML.
  const addChart = (chart) => {
    const figure = make('figure', plots, 'chart');
    const caption = make('figcaption', figure);
    make('strong', caption, '', chart.title);
    const values = chart.lines.map((line, i) => {
      const entry = make('span', caption);
      make('span', entry, 'swatch').style.background = COLORS[i % COLORS.length];
      make('bdi', entry, '', line.name);
      entry.append(' ');
      return make('b', entry);
    });
    const graph = new Dygraph(make('div', figure, 'canvas'), rowsOf(chart.lines), {
      labels: ['t', ...chart.lines.map((_, i) => `line ${i}`)],
      colors: COLORS,
      strokeWidth: 1.6,
      connectSeparatedPoints: true,
      dateWindow: whole,
      valueRange: [chart.low, chart.low + (chart.high - chart.low) * 1.04],
      gridLineColor: 'rgba(128, 128, 128, .35)',
      axisLineColor: 'rgba(128, 128, 128, .8)',
      rightGap: RIGHT_PX,
      interactionModel: {},
      underlayCallback: shadeGaps,
      axes: {
        x: {ticker: ticks, axisLabelWidth: 70},
        y: {
          axisLabelWidth: LEFT_PX - 8,
          ticker: () => [chart.low, (chart.low + chart.high) / 2, chart.high].map((v) => ({v, label: valueText(v, chart.unit)})),
        },
      },
    });
    charts.push({chart, graph, values});
  };

  // --- Lanes: one for each key of the process, with a bar for each value

  // The bars are elements and not a drawing: their texts can be selected, read aloud and printed.
  const addLane = ({key, changes}) => {
    const lane = make('div', plots, 'lane');
    const name = make('bdi', lane, 'name', key);
    name.title = key;
    const track = make('div', lane, 'track');
    const bars = changes.filter((change) => change.value !== null).map((change) => {
      const element = make('span', track, 'value' + (change.known ? ' known' : '') + (change.death ? ' death' : ''), change.value);
      element.title = `${offsetText(change.at)}: ${change.value}`;
      return {element, from: change.at, to: change.to};
    });
    lanes.push({name, track, bars});
  };

  // --- Place on the screen. The charts' own area is the measure; without charts, the same margins are used.

  const area = () => {
    if (charts.length) return charts[0].graph.getArea();
    return {x: LEFT_PX, w: plots.clientWidth - LEFT_PX - RIGHT_PX};
  };
  // Both ways between times and pixels, counted from the left edge of the plots.
  const xOf = (ms) => area().x + ((ms - shown[0]) / (shown[1] - shown[0])) * area().w;
  const timeAt = (x) => {
    const share = Math.min(1, Math.max(0, (x - area().x) / area().w));
    return shown[0] + share * (shown[1] - shown[0]);
  };

  const end = make('div', plots);
  end.id = 'end';
  const pointer = make('div', plots);
  pointer.id = 'pointer';
  pointer.hidden = true;
  const selection = make('div', plots);
  selection.id = 'selection';
  selection.hidden = true;

  // Called after each change of the window or of the time shown: positions are pixels.
  const placeLanes = () => {
    const {x, w} = area();
    for (const lane of lanes) {
      lane.name.style.width = `${x}px`;
      lane.track.style.left = `${x}px`;
      lane.track.style.width = `${w}px`;
      for (const bar of lane.bars) {
        const left = Math.max(-4, xOf(bar.from) - x);
        const right = Math.min(w, xOf(bar.to) - x);
        bar.element.hidden = right <= left;
        bar.element.style.left = `${left}px`;
        bar.element.style.width = `${right - left}px`;
      }
    }
    end.hidden = !data.death || shown[1] < 0;
    end.style.left = `${xOf(0)}px`;
  };

  // Zooms everything at once: all charts and lanes show the same time at any moment.
  const show = (from, to) => {
    shown = [from, to];
    for (const {graph} of charts) graph.updateOptions({dateWindow: shown});
    placeLanes();
  };

  // --- The pointer: the values of one time on all charts

  // The newest value of the line that is not younger than `ms`.
  const valueAt = (line, ms) => {
    let value;
    for (const point of line.points) {
      if (point[0] > ms) break;
      value = point[1];
    }
    return value;
  };

  // Without a pointer the values are those of the end, which is the moment of the death.
  const point = (ms) => {
    document.getElementById('time').textContent = `${offsetText(ms)}  (${wallText(ms)})`;
    for (const {chart, values} of charts) {
      values.forEach((element, i) => { element.textContent = valueText(valueAt(chart.lines[i], ms), chart.unit); });
    }
    pointer.hidden = false;
    pointer.style.left = `${xOf(ms)}px`;
    pointer.dataset.at = ms;
  };
  // The values in the captions go back to those of the end.
  const unpoint = () => {
    point(0);
    pointer.hidden = true;
  };

  // --- Mouse, touch and keys

  let dragFrom = null;
  const xIn = (event) => event.clientX - plots.getBoundingClientRect().left;
  plots.addEventListener('pointerdown', (event) => {
    if (event.button === 0) dragFrom = timeAt(xIn(event));
  });
  plots.addEventListener('pointermove', (event) => {
    const at = timeAt(xIn(event));
    point(at);
    if (dragFrom === null) return;
    selection.hidden = false;
    selection.style.left = `${xOf(Math.min(at, dragFrom))}px`;
    selection.style.width = `${Math.abs(xOf(at) - xOf(dragFrom))}px`;
  });
  window.addEventListener('pointerup', (event) => {
    if (dragFrom === null) return;
    const from = dragFrom;
    const to = timeAt(xIn(event));
    dragFrom = null;
    selection.hidden = true;
    // A click is no drag, and a window below a tenth of a second shows nothing.
    if (Math.abs(xOf(to) - xOf(from)) > 5 && Math.abs(to - from) > 100) show(Math.min(from, to), Math.max(from, to));
  });
  plots.addEventListener('pointerleave', unpoint);
  plots.addEventListener('dblclick', () => show(...whole));
  document.getElementById('whole').addEventListener('click', () => show(...whole));
  plots.addEventListener('keydown', (event) => {
    if (event.key === 'Escape') show(...whole);
    if (event.key !== 'ArrowLeft' && event.key !== 'ArrowRight') return;
    const step = ((shown[1] - shown[0]) / 100) * (event.key === 'ArrowLeft' ? -1 : 1);
    const at = pointer.hidden ? shown[1] : Number(pointer.dataset.at);
    point(Math.min(shown[1], Math.max(shown[0], at + step)));
    event.preventDefault();
  });

  // --- Other widths

  window.addEventListener('resize', () => {
    for (const {graph} of charts) graph.resize();
    placeLanes();
  });
  // Paper is narrower than most screens. A canvas that is drawn again for paper prints blank, a scaled one does not.
  const PAPER_PX = 680;
  window.addEventListener('beforeprint', () => { plots.style.zoom = Math.min(1, PAPER_PX / plots.clientWidth); });
  window.addEventListener('afterprint', () => { plots.style.zoom = ''; });

  // --- Go. The page shows tables without this script; with it, the long ones are folded.

  document.getElementById('charts').hidden = false;
  document.getElementById('figures').open = false;
  data.lanes.forEach(addLane);
  data.charts.forEach(addChart);
  placeLanes();
  unpoint();
})();
