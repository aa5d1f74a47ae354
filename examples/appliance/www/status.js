// SPDX-License-Identifier: MIT
// The status page. It shows what the back end sends as events. Where it gets none, for the back end
// has enough to send to or is out of reach, it loads the back end's script by a <script> element
// every few seconds, and shows what the function nasStatus() returns that the script defines.
//
// All of it is somebody's text (names of shares, log entries): it becomes text nodes, never markup.
'use strict';

const BACK_END = 'cgi-bin/status.cgi';
const REFRESH = 2000;     // milliseconds between two answers
const PATIENCE = 10000;   // milliseconds for an answer or the next event to arrive
const EVENTS_AGAIN = 60000;   // milliseconds after which events are asked for again
const SVG = 'http://www.w3.org/2000/svg';

const byId = (id) => document.getElementById(id);

// ---- elements ----------------------------------------------------------------------------------

const fill = (element, attributes, children) => {
  for (const [name, value] of Object.entries(attributes)) element.setAttribute(name, value);
  element.append(...children.filter((child) => child != null));
  return element;
};
const make = (tag, attributes = {}, ...children) =>
  fill(document.createElement(tag), attributes, children);
const draw = (tag, attributes = {}, ...children) =>
  fill(document.createElementNS(SVG, tag), attributes, children);

// Small texts; null where there is none, since the state leaves out what is not known.
const span = (kind, text) => (text ? make('span', { class: kind }, text) : null);
const quiet = (text) => span('quiet', text);
const mono = (text) => span('mono', text);
const tag = (text, kind = '') => span(`tag ${kind}`, text);

// Puts new children into an element, but only where `data` differs from the last time: what is
// unchanged keeps its focus, selection and scroll position.
const shown = new Map();
const show = (id, data, children) => {
  const text = JSON.stringify(data) ?? '';
  if (shown.get(id) === text) return;
  shown.set(id, text);
  byId(id).replaceChildren(...children(data));
};

// The same for a list of rows: one whose data is unchanged stays the element that it is. Where the
// row that has the focus is made anew, its successor gets it; where it goes, the list does.
const dataOf = new WeakMap();
const showRows = (id, items, keyOf, makeRow) => {
  const list = byId(id);
  const before = new Map([...list.children].map((row) => [row.dataset.key, row]));
  const focused = [...before.values()].find((row) => row.contains(document.activeElement));
  const rows = items.map((item) => {
    const key = keyOf(item);
    const text = JSON.stringify(item);
    const row = dataOf.get(before.get(key)) === text ? before.get(key) : makeRow(item);
    row.dataset.key = key;
    dataOf.set(row, text);
    return row;
  });
  for (const row of before.values()) if (!rows.includes(row)) row.remove();
  rows.forEach((row, i) => {
    if (list.children[i] !== row) list.insertBefore(row, list.children[i] ?? null);
  });
  if (!focused || list.contains(focused)) return;
  const successor = rows.find((row) => row.dataset.key === focused.dataset.key);
  const target = successor?.querySelector('button') ?? successor ?? list;
  if (target.tabIndex < 0) target.tabIndex = -1;
  target.focus();
};

// Without the characters that turn the writing direction of what follows them.
const upright = (text) => text.replace(/[\u200e\u200f\u202a-\u202e\u2066-\u2069]/g, '');

// ---- numbers and times as a person reads them --------------------------------------------------

const bytes = (count) => {
  const units = ['B', 'KiB', 'MiB', 'GiB', 'TiB', 'PiB'];
  let power = 0;
  while (count >= 1024 && power < units.length - 1) {
    count /= 1024;
    ++power;
  }
  return `${count.toFixed(power > 0 && count < 100 ? 1 : 0)}\u00a0${units[power]}`;
};
const rate = (count) => `${bytes(count)}/s`;

const duration = (seconds) => {
  const whole = Math.max(0, Math.round(seconds));
  const steps = [[86400, 'd'], [3600, 'h'], [60, 'min'], [1, 's']];
  const first = steps.findIndex(([length]) => whole >= length);
  if (first < 0) return '0\u00a0s';
  const [length, unit] = steps[first];
  const rest = steps[first + 1];
  const large = `${Math.floor(whole / length)}\u00a0${unit}`;
  const small = rest ? Math.floor((whole % length) / rest[0]) : 0;
  return small > 0 ? `${large} ${small}\u00a0${rest[1]}` : large;
};

// The back end's times are texts in UTC, "2026-05-01T14:03:59Z". They are shown by the appliance's
// clock, as those of its log are.
const seconds = (time) => Date.parse(time) / 1000;
let utcOffset = 0;  // seconds
const clock = (time) => new Date((seconds(time) + utcOffset) * 1000).toLocaleString(
  [], { dateStyle: 'medium', timeStyle: 'short', timeZone: 'UTC' });

const timeOfDay = (instant) =>  // seconds
  new Date((instant + utcOffset) * 1000).toLocaleTimeString([], { timeZone: 'UTC' });

// ---- graphs ------------------------------------------------------------------------------------

const WIDTH = 320;
const HEIGHT = 96;

// A round upper end for an axis: `least`, doubled until it holds `most`.
const ceiling = (most, least) => (most <= least ? least : ceiling(most, least * 2));

// Stretches of points without a long pause between two: a daemon that stood still leaves a gap.
const stretches = (times) => {
  const steps = times.slice(1).map((time, i) => time - times[i]).sort((a, b) => a - b);
  const longest = Math.max(5, 4 * (steps[steps.length >> 1] ?? 0));
  const result = [];
  times.forEach((time, i) => {
    if (i === 0 || time - times[i - 1] > longest) result.push([]);
    result[result.length - 1].push(i);
  });
  return result;
};

const line = (times, values, top, name) => {
  const start = times[0];
  const span = Math.max(1, times[times.length - 1] - start);
  const at = (i) => `${((times[i] - start) / span * WIDTH).toFixed(1)} ` +
                    `${(HEIGHT - Math.min(1, values[i] / top) * HEIGHT).toFixed(1)}`;
  const x = (i) => at(i).split(' ')[0];
  return stretches(times).flatMap((run) => {
    const points = run.map(at).join('L');
    const last = run[run.length - 1];
    return [draw('path', { class: `area ${name}`,
                           d: `M${x(run[0])} ${HEIGHT}L${points}L${x(last)} ${HEIGHT}Z` }),
            draw('path', { class: `line ${name}`, d: `M${points}` })];
  });
};

// What a graph stands on. It stays, so that focus and pointer do, while its lines come anew.
const graphs = new Map();
const graphOf = (id) => {
  if (graphs.has(id)) return graphs.get(id);
  const svg = draw('svg', { viewBox: `0 0 ${WIDTH} ${HEIGHT}`, preserveAspectRatio: 'none',
                            role: 'img', tabindex: 0 });
  const one = { svg, legend: make('ul', { class: 'legend' }), chosen: null,
                top: make('span', { class: 'top-label' }),
                start: make('span', { class: 'start-label' }),
                reading: make('output', { class: 'reading' }) };
  const choose = (index) => {
    one.chosen = index === null ? null : one.times[Math.min(one.times.length - 1, Math.max(0, index))];
    showReading(one);
  };
  const nearest = (time) => one.times.reduce(
    (best, each, i) => (Math.abs(each - time) < Math.abs(one.times[best] - time) ? i : best), 0);
  svg.addEventListener('pointermove', ({ clientX }) => {
    const { left, width } = svg.getBoundingClientRect();
    choose(nearest(one.times[0] + (clientX - left) / width * (last(one.times) - one.times[0])));
  });
  for (const end of ['pointerleave', 'blur']) svg.addEventListener(end, () => choose(null));
  svg.addEventListener('keydown', (event) => {
    const at = one.chosen === null ? one.times.length : nearest(one.chosen);
    const to = { ArrowLeft: at - 1, ArrowRight: at + 1, Home: 0, End: one.times.length - 1,
                 Escape: null }[event.key];
    if (to === undefined) return;
    event.preventDefault();
    choose(to);
  });
  byId(id).replaceChildren(one.legend, make('div', { class: 'graph' }, svg, one.top, one.start,
                                            make('span', { class: 'end-label' }, 'now')),
                           one.reading);
  graphs.set(id, one);
  return one;
};

// The values at the chosen time, and a mark there.
const showReading = (one) => {
  one.svg.querySelector('.mark')?.remove();
  const i = one.chosen === null ? -1 : one.times.indexOf(one.chosen);
  one.reading.textContent = i < 0 ? '' : `${timeOfDay(one.times[i])}: ` +
    one.lines.map(({ name, label, values }) => `${one.format(values[i])} ${label ?? name}`).join(', ');
  if (i < 0) return;
  const x = (one.times[i] - one.times[0]) / Math.max(1, last(one.times) - one.times[0]) * WIDTH;
  one.svg.append(draw('path', { class: 'mark', d: `M${x.toFixed(1)} 0V${HEIGHT}` }));
};

// A graph with its figures: `lines` are {name, label, values}, `figures` {name, text, quiet}.
const graph = (id, { times, lines, figures, top, format, title }) => {
  const one = Object.assign(graphOf(id), { times, lines, format });
  one.legend.replaceChildren(...figures.map(({ name, text, label }) =>
    make('li', { class: name }, make('strong', { class: 'figure' }, text), quiet(label))));
  one.svg.setAttribute('aria-label', title);
  one.svg.replaceChildren(
    ...[0, 0.5, 1].map((part) => draw('path', { class: 'grid', d: `M0 ${part * HEIGHT}H${WIDTH}` })),
    ...lines.flatMap(({ name, values }) => line(times, values, top, name)));
  one.top.textContent = format(top);
  one.start.textContent = `${duration(last(times) - times[0])} ago`;
  showReading(one);
};

const last = (list) => list[list.length - 1];

// The points of the period that is chosen: the last cycles, the last hour, the last day.
const period = (history) => {
  const chosen = history[byId('period').value];
  return chosen?.time?.length > 1 ? chosen : history;
};

const showLoad = (history, system) => {
  if (!history.time?.length) return;
  const { time, load } = period(history);
  const [one, five, fifteen] = system.load.map((each) => each.toFixed(2));
  graph('load', {
    times: time.map(seconds),
    top: ceiling(Math.max(...load), 1),
    format: (value) => String(Math.round(value * 100) / 100),
    title: `Load: ${one} over a minute, ${five} over five, ${fifteen} over fifteen`,
    figures: [{ name: 'first', text: one, label: `last minute; ${five} over 5, ${fifteen} over 15` }],
    lines: [{ name: 'first', label: 'load', values: load }],
  });
};

const showTraffic = (history) => {
  if (!history.time?.length) return;
  const { time, received, sent } = period(history);
  const now = { received: rate(last(history.received)), sent: rate(last(history.sent)) };
  graph('traffic', {
    times: time.map(seconds),
    top: ceiling(Math.max(...received, ...sent), 1024),
    format: rate,
    title: `Traffic: ${now.received} received, ${now.sent} sent`,
    figures: [{ name: 'first', text: now.received, label: 'received' },
              { name: 'second', text: now.sent, label: 'sent' }],
    lines: [{ name: 'first', label: 'received', values: received },
            { name: 'second', label: 'sent', values: sent }],
  });
};

// ---- cards -------------------------------------------------------------------------------------

// How full something is: a bar that says so to a screen reader too.
const bar = (used, total, label) => {
  const percent = total > 0 ? Math.min(100, Math.round(used / total * 100)) : 0;
  const filled = make('span', percent >= 90 ? { class: 'full' } : {});
  filled.style.inlineSize = `${percent}%`;
  return make('span', { class: 'bar', role: 'meter', 'aria-label': label, 'aria-valuemin': 0,
                        'aria-valuemax': 100, 'aria-valuenow': percent }, filled);
};

const facts = (rows) => rows.filter(([, value]) => value).map(([name, value]) =>
  make('div', {}, make('dt', {}, name), make('dd', {}, value)));

const lamp = (text, good) => make('span', { class: `tag ${good ? 'good' : 'bad'}` },
  make('span', { class: 'lamp', 'aria-hidden': true }), text);

// What the board's lines say; it has none for its fan.
const boardFacts = (board, disks) => !board ? [['Board', 'none whose lines can be read']] : [
  ['Board', `revision ${board.revision}`],
  ['Temperature', lamp(board.temperature, board.temperature === 'normal')],
  ['Drives', lamp(`${board.drives} of ${disks} fitted`, board.drives >= disks)],
];

const showSystem = (system, ...board) => show('system', [system, board], () => {
  const used = system.memory_total - system.memory_free;
  return [
    ...facts([
      ['Up for', duration(system.uptime)],
      ['Processors', String(system.processors)],
      ['Kernel', system.kernel],
      ['Platform', system.platform],
      ['Time zone', [system.timezone, system.zone && `(${system.zone})`].filter(Boolean).join(' ')],
      ...boardFacts(...board),
    ]),
    make('div', { class: 'tall' },
         make('dt', {}, 'Memory'),
         make('dd', {}, `${bytes(used)} of ${bytes(system.memory_total)}`),
         make('dd', {}, bar(used, system.memory_total, 'Memory in use'))),
  ];
});

const row = (title, details, ...more) =>
  make('li', {}, make('p', { class: 'title' }, ...title),
       make('p', { class: 'details' }, ...details), ...more);

const showDisks = (disks) => show('disks', disks, () => disks.map((disk) => row(
  [make('strong', {}, disk.device),
   disk.present ? tag('present', 'good') : tag('not found', 'bad')],
  [quiet([disk.size ? bytes(disk.size) : null,
          disk.inactivityperiod > 0 ? `sleeps after ${disk.inactivityperiod} min` : 'never sleeps',
         ].filter(Boolean).join(', '))])));

const showVolumes = (volumes) => show('volumes', volumes, () => volumes.map((volume) => row(
  [make('strong', {}, volume.folder),
   volume.mounted ? quiet(`${bytes(volume.free)} free of ${bytes(volume.total)}`)
                  : tag('not mounted', 'bad')],
  volume.mounted ? [bar(volume.total - volume.free, volume.total, `${volume.folder} in use`)]
                 : [])));

const showInterfaces = (interfaces) => show('interfaces', interfaces, () => interfaces.map((one) =>
  row([make('strong', {}, one.name), one.up ? tag('up', 'good') : tag('down', 'bad')],
      [...one.addresses.map(mono), quiet(one.mac)],
      one.up ? make('p', { class: 'details' },
                    quiet([one.speed ? `${one.speed}\u00a0Mbit/s` : null,
                           one.duplex ? `${one.duplex} duplex` : null,
                           `${rate(one.received)} received`, `${rate(one.sent)} sent`,
                          ].filter(Boolean).join(', '))) : null)));

const ACCESS = { full: 'may write', readonly: 'may read', none: 'no access' };

// Hides the rows that do not hold what is looked for.
const filterShares = () => {
  const wanted = byId('share-filter').value.trim().toLocaleLowerCase();
  const rows = [...byId('shares').children];
  for (const row of rows) row.hidden = !row.textContent.toLocaleLowerCase().includes(wanted);
  const found = rows.filter((row) => !row.hidden).length;
  byId('share-count').textContent = found === rows.length ? found : `${found} of ${rows.length}`;
};

// They come in natural order of their names, which stays the order of what is equal otherwise.
const ordered = (shares) => {
  const by = byId('share-order').value;
  if (by === 'name') return shares;
  return [...shares].sort((a, b) => (a[by] ?? '').localeCompare(b[by] ?? ''));
};

const showShares = (shares) => {
  showRows('shares', ordered(shares), ({ folder, name }) => folder ?? name ?? '', (share) => row(
    [make('strong', {}, share.name), tag(share.type),
     share.status === 'active' ? null : tag(share.status, 'bad'),
     share.location === 'internal' ? null : tag(share.location)],
    [mono(share.folder)],
    make('p', { class: 'details users' },
         ...(share.users.length === 0 ? [quiet('no users')] : share.users.map((user) =>
           make('span', { class: 'user' }, make('bdi', {}, user.name ?? ''), ' ',
                quiet(ACCESS[user.access])))))));
  filterShares();
};

// ---- log ---------------------------------------------------------------------------------------

// What is shown: what the back end has found, the newest first, and before it the entries that have
// come since with the state and fit as well.
const log = { entries: [], newest: null, position: null, categories: new Set(), search: 0 };
const MOST_ENTRIES = 1000;

const wanted = () => Object.fromEntries(['category', 'text', 'since', 'until'].map(
  (name) => [name, byId(`log-${name}`).value]));

// As the back end decides it.
const fits = ({ category, text, since, until }) => (entry) =>
  (category === '' || `|${entry.category}|`.includes(`|${category}|`)) &&
  [entry.time, entry.where, entry.category, entry.text].join(' ').toLowerCase()
    .includes(text.toLowerCase()) &&
  entry.time >= since && (until === '' || entry.time.slice(0, until.length) <= until);

const showLog = () => {
  showRows('log', log.entries, ({ id }) => id, ({ time, where, category, text }) =>
    make('li', { class: category === 'WARNING' ? 'warning' : '' },
         make('time', {}, time.replace('T', ' ')), tag(category),
         make('span', { class: 'message' }, text),
         make('span', { class: 'where mono quiet' }, where)));
  byId('log-older').hidden = !log.position;
};

const addCategories = (names) => {
  const select = byId('log-category');
  for (const name of names.filter((each) => !log.categories.has(each))) {
    log.categories.add(name);
    const next = [...select.options].slice(1).find((option) => option.value > name);
    select.insertBefore(make('option', { value: name }, name), next ?? null);
  }
};

// Asks for the entries that are wanted, or for more of them. Only the last search counts.
const searchLog = async (position = '') => {
  const search = ++log.search;
  const fields = Object.entries(wanted()).filter(([, value]) => value !== '');
  const say = (text) => { byId('log-found').textContent = text; };
  try {
    const answer = await fetch(`${BACK_END}?${new URLSearchParams([['log', position], ...fields])}`);
    if (!answer.ok) throw new Error(await answer.text());
    const found = await answer.json();
    if (search !== log.search) return;
    log.entries = position === '' ? found.entries : [...log.entries, ...found.entries];
    log.position = found.position ?? null;
    addCategories(found.categories);
    const focused = document.activeElement === byId('log-older');
    showLog();
    if (focused && !log.position) byId('log').focus();
    const count = `${log.entries.length} ${log.entries.length === 1 ? 'entry' : 'entries'}`;
    say([position === '' && fields.length === 0 ? '' :
           `Found ${count}; ${log.position ? 'there may be older ones' : 'there are no older ones'}.`,
         ...found.faults.map((fault) => `Not searched: ${fault}.`)].join(' '));
  } catch (error) {
    if (search === log.search) say(`The log cannot be searched: ${error.message}`);
    if (log.entries.length === 0) log.newest = null;
  }
};

// Those that have come since the last state; where they are too many, a new search finds them.
const addNewEntries = (entries) => {
  if (entries.length === 0 || entries[0].id === log.newest) return;
  const since = entries.findIndex(({ id }) => id === log.newest);
  log.newest = entries[0].id;
  if (since < 0 || log.entries.length > MOST_ENTRIES) {
    searchLog();
    return;
  }
  const known = new Set(log.entries.map(({ id }) => id));
  const come = entries.slice(0, since).filter(({ id }) => !known.has(id));
  addCategories(come.flatMap(({ category }) => category.split('|')));
  log.entries = [...come.filter(fits(wanted())), ...log.entries];
  showLog();
};

// ---- warnings ----------------------------------------------------------------------------------

const tokens = new Map();   // by warning: the back end's leave to acknowledge it

const acknowledge = async (id, button) => {
  button.disabled = true;
  const say = (text) => { byId('acknowledgement').textContent = text; };
  try {
    const answer = await fetch(BACK_END, {
      method: 'POST',
      headers: { 'Content-Type': 'text/plain' },
      body: tokens.get(id),
    });
    if (!answer.ok) throw new Error(await answer.text());
    say('Acknowledged.');
  } catch (error) {
    button.disabled = false;
    say(`Not acknowledged: ${error.message}`);
  }
};

const warningRow = ({ id, text: original, since, acknowledged }) => {
  const text = upright(original);
  const button = make('button', { type: 'button', 'aria-label': `Acknowledge: ${text}` },
                      'Acknowledge');
  button.addEventListener('click', () => acknowledge(id, button));
  return make('li', { class: acknowledged ? 'acknowledged' : '', 'data-id': id },
              make('div', {}, make('strong', {}, text), quiet(`since ${clock(since)}`)),
              acknowledged ? tag('acknowledged') : button);
};

// What was said about a warning goes when there is a new one.
let newest = new Set();
const forgetMessage = (warnings) => {
  if (warnings.some(({ id }) => !newest.has(id))) byId('acknowledgement').textContent = '';
  newest = new Set(warnings.map(({ id }) => id));
};

const showWarnings = (warnings) => {
  forgetMessage(warnings);
  tokens.clear();
  for (const { id, token } of warnings) if (token) tokens.set(id, token);
  byId('warnings-card').hidden = warnings.length === 0;
  const open = warnings.filter(({ acknowledged }) => !acknowledged).length;
  byId('verdict').textContent = open > 0 ? `${open} ${open === 1 ? 'warning' : 'warnings'} to see to` :
                                warnings.length > 0 ? 'Nothing new to see to' : 'All is well';
  byId('verdict').className = open > 0 ? 'bad' : 'good';
  showRows('warnings', warnings.map(({ token, ...rest }) => rest), ({ id }) => id, warningRow);
};

// ---- freshness ---------------------------------------------------------------------------------

let answered = null;   // {at: when an answer came, by this page's clock; age: of its state then}

// A state is stale once the daemon has missed several of its cycles.
const STALE = (cycle) => 5 + 3 * cycle / 1000;
let staleAfter = STALE(1000);

// So is one from the future, which the clock's being set back leaves, but for a rounded second.
const isStale = (age) => age > staleAfter || age < -2;

const WORDS = { waiting: 'Waiting', live: 'Live', stale: 'Stale', silent: 'No answer' };

const showFreshness = (freshness) => {
  if (document.body.dataset.freshness === freshness) return;
  document.body.dataset.freshness = freshness;
  byId('freshness').textContent = WORDS[freshness];
  showAge();
};

const showAge = () => {
  if (answered === null) return;
  const age = answered.age + (performance.now() - answered.at) / 1000;
  const fresh = age <= staleAfter && document.body.dataset.freshness !== 'silent';
  byId('age').textContent = age < -2 ? 'The appliance\'s clock was set back' :
                            fresh ? 'Updated just now' : `Last word ${duration(age)} ago`;
  if (isStale(age) && document.body.dataset.freshness === 'live') showFreshness('stale');
};

// ---- the whole ---------------------------------------------------------------------------------

let shownState = null;
const showGraphs = () => {
  showLoad(shownState.history, shownState.system);
  showTraffic(shownState.history);
};

const showState = (state) => {
  if (!state.written) {
    showFreshness('waiting');
    byId('age').textContent = 'The daemon has not written its state yet';
    return;
  }
  const { system } = state;
  utcOffset = system.utc_offset ?? 0;
  byId('zone').textContent = system.zone ? `times in ${system.zone}` : '';
  const name = [system.hostname, system.domain].filter(Boolean).join('.');
  document.title = `${name}: status`;
  byId('host').textContent = name;
  byId('about').textContent = system.description ?? '';
  showWarnings(state.warnings);
  showSystem(system, state.board, state.disks.length);
  shownState = state;
  showGraphs();
  showDisks(state.disks);
  showVolumes(state.volumes);
  showInterfaces(state.interfaces);
  showShares(state.shares);
  addNewEntries(state.entries);
  staleAfter = STALE(state.cycle);
  answered = { at: performance.now(), age: seconds(state.now) - seconds(state.written) };
  showFreshness(isStale(answered.age) ? 'stale' : 'live');
  showAge();
};

// Loads the script once more. The old element goes: its function stays until it is defined anew.
const refresh = () => {
  document.getElementById('state')?.remove();
  const script = make('script', { id: 'state', src: `${BACK_END}?${Date.now()}` });
  const next = (then) => {
    clearTimeout(patience);
    script.onload = script.onerror = null;
    const asks = document.hidden || performance.now() < eventsAt;
    setTimeout(asks ? refresh : listen, asks ? REFRESH : 0);
    then();
  };
  const silent = () => showFreshness('silent');
  const patience = setTimeout(() => next(silent), PATIENCE);
  script.onload = () => next(() => showState(nasStatus()));
  script.onerror = () => next(silent);
  document.head.append(script);
};

// Shows events as long as they come. A page that nobody sees leaves its place to another one.
let eventsAt = 0;  // when they are to be asked for
let events = null;
const listen = () => {
  events = new EventSource(`${BACK_END}?events`);
  const end = (then) => {
    clearTimeout(patience);
    events.close();
    then();
  };
  const fail = (pause) => end(() => {
    eventsAt = performance.now() + pause;
    refresh();
  });
  const wait = (pause) => setTimeout(() => fail(pause), PATIENCE);
  let patience = wait(Infinity);  // Where not even the first one comes, something holds them back.
  events.onmessage = ({ data }) => {
    clearTimeout(patience);
    patience = wait(EVENTS_AGAIN);
    showState(JSON.parse(data));
    if (document.hidden) end(refresh);
  };
  events.addEventListener('end', () => end(listen));  // it may go on
  events.onerror = () => fail(EVENTS_AGAIN);
};

byId('period').addEventListener('change', () => shownState && showGraphs());
byId('share-filter').addEventListener('input', filterShares);
byId('share-order').addEventListener('change', () => shownState && showShares(shownState.shares));
let typing = null;  // A search begins when it pauses.
byId('log-text').addEventListener('input', () => {
  clearTimeout(typing);
  typing = setTimeout(searchLog, 300);
});
for (const name of ['category', 'since', 'until']) {
  byId(`log-${name}`).addEventListener('change', () => searchLog());
}
byId('log-older').addEventListener('click', () => searchLog(log.position));
addEventListener('pagehide', () => events?.close());
setInterval(showAge, 1000);
refresh();
