// The frames, drawn from the requests: a recording holds what clients asked for, not what the chip made
// of it. Layers are known by the requests that describe them, displays by those that tell their size.
'use strict';

const compositions = ['none', 'client', 'device', 'solid color', 'cursor', 'sideband'];
const transforms = ['none', 'flip h', 'flip v', 'rotate 180', 'rotate 90', 'flip h + rot 90', 'flip v + rot 90', 'rotate 270'];
const displays = ['primary', 'pluggable', 'virtual', 'secondary'];
const noPlace = { left: 0, top: 0, right: 0, bottom: 0 };

// What a request changes of a layer: the layer's number and its new fields, or null.
function layerChange({ operation, arguments: [first, second, third] }) {
  switch (operation) {
    case 'changeLayerType': return [first, { type: second }];
    case 'setLayerCompositionType': return [second, { composition: third }];
    case 'setLayerTransform': return [second, { transform: third }];
    case 'setLayerZOrder': return [second, { z: third }];
    case 'setLayerDisplayFrame': return [second, { frame: third }];
    case 'setLayerSourceCrop': return [second, { crop: third }];
    case 'setLayerBuffer': return [second, { buffer: third.value1 ?? 0, update: {} }];
    default: return null;
  }
}

// The display whose frame a call put on show; -1 for none.
function presentedBy(call) {
  if (call.kind !== 'request' || call.status !== 'ok' || !call.target.startsWith('composer')) return -1;
  const [display] = call.arguments;
  if (call.operation === 'present' && call.answer === 1) return display === 3 ? 3 : 0;
  return call.operation === 'presentDisplay' && call.answer === 0 && display === 0 ? 0 : -1;
}

// What the requests up to one of them have said. Layers are replaced, not changed, so that a frame is a
// copy of the list only.
class Displays {
  constructor() {
    this.layers = new Map();
    this.known = new Set(); // layers that were made here
    this.sizes = new Map();
    this.stacks = new Map();
  }

  resize(display, width, height) {
    if (width > 0 && height > 0) this.sizes.set(display, { width, height });
  }

  apply(call) {
    if (call.kind !== 'request' || call.status !== 'ok') return;
    const [first, second, third] = call.arguments;
    const change = layerChange(call);
    if (change) this.change(first, ...change);
    switch (call.operation) {
      case 'createLayer':
        if (!this.layers.has(second) && first in displays) this.layers.set(second, { display: first });
        this.known.add(second);
        break;
      case 'destroyLayer': this.layers.delete(second); break;
      case 'buildLayerStack': this.stacks.set(first, second.layers ?? []); break;
      case 'initialize': this.resize(0, first.value1, first.value2); break;
      case 'setActiveConfig': this.resize(0, second.value1, second.value2); break;
      case 'getCurrentConfig': this.resize(0, call.answer?.value2, call.answer?.value3); break;
      case 'setFrameBufferResolution': this.resize(first, second, third); break;
    }
  }

  change(display, number, fields) {
    let layer = this.layers.get(number);
    if (!layer) {
      // Made before the recording began, since nobody has made or destroyed it since.
      if (this.known.has(number) || 'type' in fields) return;
      layer = { display };
    }
    const place = fields.frame ?? fields.crop;
    if (place && (place.left > place.right || place.top > place.bottom)) return;
    this.layers.set(number, { ...layer, ...fields });
  }

  frame(display) {
    const layers = new Map([...this.layers].filter(([, layer]) => layer.display === display));
    let size = this.sizes.get(display);
    if (!size) {
      const edge = side => Math.max(1, ...[...layers.values()].map(it => it.frame?.[side] ?? 0));
      size = { width: edge('right'), height: edge('bottom') };
    }
    return { display, ...size, layers, stack: this.stacks.get(display) ?? [] };
  }
}

// The frames of a recording, each made when it is asked for.
class Frames {
  constructor(calls) {
    this.calls = calls;
    this.list = []; // {index of the call that presented it, display, number of the display's frame before or -1}
    const last = new Map();
    calls.forEach((call, index) => {
      const display = presentedBy(call);
      if (display < 0) return;
      this.list.push({ index, display, before: last.get(display) ?? -1 });
      last.set(display, this.list.length - 1);
    });
    this.made = new Map();
    this.restart();
  }

  restart() {
    this.displays = new Displays();
    this.next = 0; // the call that was not applied yet
  }

  at(number) {
    if (this.made.has(number)) return this.made.get(number);
    const { index, display } = this.list[number];
    if (index < this.next) this.restart();
    for (; this.next < index; ++this.next) this.displays.apply(this.calls[this.next]);
    const frame = this.displays.frame(display);
    if (this.made.size > 100) this.made.clear();
    this.made.set(number, frame);
    return frame;
  }

  // The frame that was on show when the call was made, or that it made; -1 for none.
  shownAt(index) {
    let from = 0;
    for (let to = this.list.length; from < to;) {
      const middle = (from + to) >> 1;
      if (this.list[middle].index <= index) from = middle + 1; else to = middle;
    }
    return from - 1;
  }

  // The frame, lowest layer first, each with what changed since the display's frame before.
  describe(number) {
    const { before, index } = this.list[number];
    const was = before < 0 ? null : this.at(before);
    const frame = this.at(number);
    const layers = [...frame.layers].map(([id, layer]) => ({ id, change: was ? changeOf(layer, was.layers.get(id)) : '', ...layer }));
    layers.sort((a, b) => (a.z ?? 0) - (b.z ?? 0));
    const gone = was ? [...was.layers.keys()].filter(id => !frame.layers.has(id)) : [];
    return { ...frame, layers, gone, first: !was, time: this.calls[index].time };
  }
}

function changeOf(now, was) {
  if (!was) return 'new';
  const same = name => now[name] === was[name] || (typeof now[name] === 'object' && name !== 'update' && textOf(now[name]) === textOf(was[name] ?? null));
  const names = { frame: 'frame', crop: 'crop', z: 'z', type: 'type', composition: 'composition', transform: 'transform', update: 'buffer' };
  const changed = Object.keys(names).filter(name => !same(name)).map(name => names[name]);
  return changed.length ? `changed: ${changed.join(', ')}` : '';
}

const svgElement = (name, attributes, text = '') => {
  const element = document.createElementNS('http://www.w3.org/2000/svg', name);
  for (const [key, value] of Object.entries(attributes)) element.setAttribute(key, value);
  element.textContent = text;
  return element;
};
const layerColor = id => `var(--layer${Number(BigInt(id) % 6n + 6n) % 6})`;

function drawFrame(frame) {
  const svg = svgElement('svg', { viewBox: `0 0 ${frame.width} ${frame.height}`, role: 'img' });
  const box = ({ left = 0, top = 0, right = 0, bottom = 0 }, attributes) => svg.append(svgElement('rect',
    { x: left, y: top, width: Math.max(right - left, 0), height: Math.max(bottom - top, 0), ...attributes }));
  box({ right: frame.width, bottom: frame.height }, { class: 'panel' });
  for (const { layerRect } of frame.stack) if (layerRect) box(layerRect, { class: 'stack' });
  for (const layer of frame.layers) {
    const place = layer.frame ?? noPlace;
    box(place, { class: 'layer', style: `fill: ${layerColor(layer.id)}; stroke: ${layerColor(layer.id)}` });
    if (layer.change) box(place, { class: 'changed' });
  }
  const size = Math.max(frame.width, frame.height) / 26;
  const taken = new Set();
  for (const layer of [...frame.layers].reverse()) {
    const { left, top } = layer.frame ?? noPlace;
    let y = Math.max(top, 0) + size * 1.1;
    const x = Math.max(left, 0) + size * 0.4;
    const key = () => `${Math.round(x / size / 2)} ${Math.round(y / size)}`;
    for (; taken.has(key()) && y < frame.height; y += size);
    taken.add(key());
    svg.append(svgElement('text', { x, y, 'font-size': size }, layer.id));
  }
  return svg;
}

function listLayers(frame) {
  const list = document.createElement('ol');
  const placeText = ({ left, top, right, bottom }) => `${left},${top} ${right - left}×${bottom - top}`;
  const line = (parent, text, style) => {
    const element = document.createElement('div');
    element.textContent = text;
    element.className = style;
    parent.append(element);
  };
  for (const layer of [...frame.layers].reverse()) {
    const item = document.createElement('li');
    const mark = document.createElement('i');
    mark.style.background = layerColor(layer.id);
    item.append(mark);
    line(item, `layer ${layer.id}`, '');
    if (layer.change) line(item, layer.change, 'refused');
    const named = (names, value = 0) => names[value] ?? value;
    line(item, `z ${layer.z ?? 0} · ${named(compositions, layer.composition)} · transform ${named(transforms, layer.transform)}`, '');
    line(item, `frame ${placeText(layer.frame ?? noPlace)} · crop ${placeText(layer.crop ?? noPlace)} · buffer ${layer.buffer ?? 'none'}`, 'soft');
    list.append(item);
  }
  if (frame.gone.length) {
    const item = document.createElement('li');
    line(item, `gone since the frame before: layer ${frame.gone.join(', ')}`, 'refused');
    list.append(item);
  }
  return list;
}
