// What the page shows, and what keys, pointer and filters do to it.
'use strict';

const byId = id => document.getElementById(id);
const recording = readRecording(byId('recording')?.textContent ?? '', JSON.parse(byId('about')?.textContent ?? '{}'));
const frames = new Frames(recording.calls);
const lanes = new Lanes(byId('lanes'), recording);
let chosen = null;
let shown = recording.calls; // those that pass the filters

function fillSelect(id, all, values, text) {
  const options = values.map(value => new Option(text(value), value));
  byId(id).replaceChildren(new Option(all, ''), ...options);
}

function element(name, text, style = '') {
  const made = document.createElement(name);
  made.textContent = text;
  made.className = style;
  return made;
}

function describe(call) {
  const section = byId('call');
  if (!call) {
    section.replaceChildren(element('p', recording.calls.length ? 'Point at a bar, or walk with the arrow keys.' : 'There is no recording in this page.', 'soft'));
    return;
  }
  const table = document.createElement('table');
  const row = (name, value, style) => {
    const line = table.insertRow();
    line.append(element('th', name));
    line.insertCell().append(element('pre', value, style));
  };
  row('n', `${call.n}, by client ${call.client}, at ${timeText(call.time)}, took ${timeText(call.took)}`);
  const parameters = recording.parametersOf(call);
  call.arguments.forEach((value, index) => row(parameters[index] || `argument ${index + 1}`, textOf(value)));
  if (call.kind !== 'gone') {
    row('answer', textOf(call.answer));
    if (call.status !== 'ok') row('status', `${call.status.kind} error ${call.status.code}: ${call.status.description}`, 'refused');
  }
  for (const why of call.why) row('refused', why, 'refused');
  const title = element('h2', `${call.target} ${call.operation} `);
  if (call.refusal) title.append(element('span', call.refusal, 'refused'));
  section.replaceChildren(title, table);
}

let drawn = null; // the frame that is on the page
function showFrame(number) {
  byId('scrubber').value = number;
  if (drawn === number) return;
  drawn = number;
  if (number < 0) {
    byId('frame').textContent = frames.list.length ? 'no frame yet' : 'no frames were presented';
    byId('picture').replaceChildren();
    return;
  }
  const frame = frames.describe(number);
  byId('frame').textContent = `frame ${number + 1} of ${frames.list.length}, ${displays[frame.display]}, ${frame.width}×${frame.height}, at ${timeText(frame.time)}`;
  byId('picture').replaceChildren(drawFrame(frame), listLayers(frame));
}

function choose(call) {
  chosen = call;
  lanes.choose(call);
  describe(call);
  showFrame(call ? frames.shownAt(call.index) : -1);
}

function filter() {
  const words = byId('search').value.toLowerCase().split(/\s+/).filter(Boolean);
  const [client, operation, kind] = ['client', 'operation', 'kind'].map(id => byId(id).value);
  const passes = call => (!client || String(call.client) === client) && (!operation || call.name === operation) &&
    (kind !== 'refused' || call.refusal) && (kind !== 'event' || call.kind === 'event') && words.every(word => call.text.includes(word));
  shown = recording.calls.filter(passes);
  const set = new Set(shown);
  lanes.visible = call => set.has(call);
  lanes.ask();
  const all = shown.length === recording.calls.length;
  byId('shown').textContent = all ? '' : `${shown.length} of ${recording.calls.length}`;
}

// The next call in a direction that passes the filters and the test.
function walk(direction, test = () => true) {
  const from = chosen ? chosen.index : direction > 0 ? -1 : recording.calls.length;
  const list = direction > 0 ? shown : [...shown].reverse();
  const next = list.find(call => (call.index - from) * direction > 0 && test(call));
  if (next) choose(next);
}

function scrub(number) {
  if (number >= 0 && number < frames.list.length) choose(recording.calls[frames.list[number].index]);
}

function clear() {
  for (const id of ['search', 'client', 'operation', 'kind']) byId(id).value = '';
  filter();
}

const refused = call => call.refusal;
const keys = {
  ArrowRight: () => walk(1), ArrowLeft: () => walk(-1), n: () => walk(1, refused), N: () => walk(-1, refused),
  ']': () => scrub(drawn + 1), '[': () => scrub(drawn - 1), '+': () => lanes.zoom(0.5), '-': () => lanes.zoom(2),
  '=': () => lanes.zoom(0.5), 0: () => lanes.showAll(), '/': () => byId('search').focus(), Escape: clear,
};

document.addEventListener('keydown', event => {
  if (event.ctrlKey || event.altKey || event.metaKey) return;
  const { target } = event;
  if (event.key === 'Escape') target.blur();
  else if (target.matches('input[type=search], select') || (target.type === 'range' && event.key.startsWith('Arrow'))) return;
  if (!Object.hasOwn(keys, event.key)) return;
  event.preventDefault();
  keys[event.key]();
});

const pointer = event => {
  const place = byId('lanes').getBoundingClientRect();
  return [event.clientX - place.left, event.clientY - place.top];
};
let drag = null;
byId('lanes').addEventListener('pointermove', event => {
  const [x, y] = pointer(event);
  if (drag && event.buttons) {
    drag.moved ||= Math.abs(x - drag.x) > 3;
    if (drag.moved) lanes.show(drag.from - (lanes.placeOf(x) - lanes.placeOf(drag.x)), lanes.span);
    return;
  }
  const call = lanes.at(x, y);
  if (call === lanes.pointed) return;
  lanes.pointed = call;
  lanes.ask();
  describe(call ?? chosen);
});
byId('lanes').addEventListener('pointerdown', event => {
  const [x, y] = pointer(event);
  drag = { x, y, from: lanes.from, moved: false };
});
byId('lanes').addEventListener('pointerup', event => {
  const call = lanes.at(...pointer(event));
  if (call && !drag?.moved) choose(call);
  drag = null;
});
byId('lanes').addEventListener('pointerleave', () => {
  lanes.pointed = null;
  lanes.ask();
  describe(chosen);
});
byId('lanes').addEventListener('wheel', event => {
  const [x] = pointer(event);
  // Over the names it scrolls.
  if (x < labelWidth || event.shiftKey) return;
  event.preventDefault();
  if (Math.abs(event.deltaX) > Math.abs(event.deltaY)) lanes.show(lanes.from + event.deltaX / lanes.width * lanes.span, lanes.span);
  else lanes.zoom(1.2 ** Math.sign(event.deltaY), lanes.placeOf(x));
}, { passive: false });

byId('filters').addEventListener('submit', event => event.preventDefault());
byId('filters').addEventListener('input', event => {
  if (event.target.id === 'pauses') lanes.stretch(event.target.checked); else filter();
});
byId('scrubber').addEventListener('input', () => scrub(Number(byId('scrubber').value)));

const { calls, about } = recording;
document.title = about.file ?? 'Recording';
byId('title').textContent = document.title;
const last = calls.reduce((end, call) => Math.max(end, call.time + call.took), 0);
byId('counts').textContent = [plural(recording.requests, 'request'), plural(recording.events, 'event'), plural(recording.clients.length, 'client'),
  `${recording.refused} refused`, plural(frames.list.length, 'frame'), timeText(last - (calls[0]?.time ?? 0)), recording.ending].filter(Boolean).join(' · ');
fillSelect('client', 'all clients', recording.clients, client => `client ${client}`);
const times = new Map();
for (const call of calls) times.set(call.name, (times.get(call.name) ?? 0) + 1);
fillSelect('operation', 'all operations', recording.operations, name => `${name} (${times.get(name)})`);
byId('scrubber').max = Math.max(frames.list.length - 1, 0);
filter();
choose(calls[frames.list[0]?.index ?? 0] ?? null);
