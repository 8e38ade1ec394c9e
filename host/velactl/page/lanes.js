// The lanes: a canvas of the size of its window, on which only what is in view is drawn. Places along it
// are microseconds, without the pauses where those are shortened.
'use strict';

const labelWidth = 92;
const axisHeight = 24;
const rowHeight = 20;
const laneGap = 10;
const nameHeight = 15; // of the names of a row's refusals, below it

// The first index from which `is` holds; it has to hold for all behind it.
function firstWhere(list, is) {
  let from = 0;
  for (let to = list.length; from < to;) {
    const middle = (from + to) >> 1;
    if (is(list[middle])) to = middle; else from = middle + 1;
  }
  return from;
}

class Lanes {
  constructor(element, recording) {
    this.element = element;
    this.canvas = element.querySelector('canvas');
    this.recording = recording;
    this.visible = () => true;
    this.chosen = null;
    this.pointed = null;
    this.makeRows();
    this.stretch(true);
    new ResizeObserver(() => this.resize()).observe(element);
    matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => this.ask());
    element.addEventListener('scroll', () => this.ask());
  }

  // A row is calls that do not overlap; a client has as many as its requests need, and one or more for the events it heard.
  makeRows() {
    this.rows = [];
    this.labels = [];
    let y = axisHeight + rowHeight + laneGap;
    for (const client of this.recording.clients) {
      const calls = this.recording.calls.filter(call => call.client === client);
      this.labels.push({ text: `client ${client}`, y, count: calls.length });
      for (const kind of ['request', 'event']) {
        const rows = [];
        for (const call of calls) {
          if ((call.kind === 'event') !== (kind === 'event')) continue;
          let row = rows.find(it => it.end <= call.time);
          if (!row) rows.push(row = { calls: [], kind });
          row.calls.push(call);
          row.end = call.time + call.took;
          call.row = row;
        }
        for (const row of rows) {
          row.y = y;
          y += rowHeight + (row.calls.some(call => call.refusal) ? nameHeight : 0);
        }
        this.rows.push(...rows);
      }
      y += laneGap;
    }
    this.height = y;
    this.element.querySelector('#height').style.height = `${y}px`;
    this.element.style.maxHeight = `${y + 6}px`;
  }

  // Gives each call its place, with pauses or without, and shows everything.
  stretch(shorten) {
    const { calls } = this.recording;
    const took = calls.map(call => call.took).sort((a, b) => a - b);
    const longest = shorten ? Math.max(200, 5 * (took[took.length >> 1] ?? 0)) : Infinity;
    this.pauses = []; // {at: place, time, more: time left out before it and there}
    let left = calls[0]?.time ?? 0;
    let end = left;
    this.pauses.push({ at: 0, more: left });
    for (const call of [...calls].sort((a, b) => a.time - b.time)) {
      if (call.time - end > longest) {
        left += call.time - end - longest;
        this.pauses.push({ at: call.time - left, more: left });
      }
      call.from = call.time - left;
      end = Math.max(end, call.time + call.took);
      call.to = call.from + call.took;
    }
    this.total = Math.max(end - left, 1);
    this.showAll();
  }

  showAll() { this.show(-this.total * 0.01, this.total * 1.02); }

  show(from, span) {
    const whole = this.total * 1.02;
    this.span = Math.min(Math.max(span, 5), whole);
    this.from = Math.min(Math.max(from, -this.total * 0.01), whole - this.span - this.total * 0.01);
    this.ask();
  }

  // Factor below 1: closer, around a place.
  zoom(factor, around = this.from + this.span / 2) {
    const span = Math.min(this.span * factor, this.total * 1.02);
    this.show(around - (around - this.from) * span / this.span, span);
  }

  choose(call) {
    this.chosen = call;
    if (!call) return this.ask();
    if (call.from < this.from || call.to > this.from + this.span) this.show(call.from - this.span / 2, this.span);
    const { y } = call.row;
    const top = this.element.scrollTop;
    if (y < top + axisHeight || y + rowHeight > top + this.element.clientHeight) this.element.scrollTop = y - this.element.clientHeight / 2;
    this.ask();
  }

  resize() {
    const { clientWidth, clientHeight } = this.element;
    this.width = clientWidth;
    this.canvas.width = clientWidth * devicePixelRatio;
    this.canvas.height = clientHeight * devicePixelRatio;
    this.canvas.style.width = `${clientWidth}px`;
    this.canvas.style.height = `${clientHeight}px`;
    this.draw();
  }

  xOf(place) { return labelWidth + (place - this.from) / this.span * (this.width - labelWidth - 8); }

  placeOf(x) { return this.from + (x - labelWidth) / (this.width - labelWidth - 8) * this.span; }

  timeAt(place) { return place + this.pauses[Math.max(firstWhere(this.pauses, it => it.at > place) - 1, 0)].more; }

  // The call at a point of the canvas, or null.
  at(x, y) {
    const row = this.rows.find(it => y + this.element.scrollTop >= it.y && y + this.element.scrollTop < it.y + rowHeight);
    if (!row || y < axisHeight) return null;
    const place = this.placeOf(x);
    const reach = this.placeOf(x + 4) - place;
    let best = null;
    let distance = reach;
    for (let i = firstWhere(row.calls, it => it.to >= place - reach); i < row.calls.length && row.calls[i].from <= place + reach; ++i) {
      const call = row.calls[i];
      const away = Math.max(call.from - place, place - call.to, 0);
      if (away <= distance && this.visible(call)) [best, distance] = [call, away];
    }
    return best;
  }

  ask() {
    if (this.asked) return;
    this.asked = requestAnimationFrame(() => this.draw());
  }

  draw() {
    this.asked = 0;
    if (!this.width) return;
    const style = getComputedStyle(document.documentElement);
    this.colors = name => style.getPropertyValue(`--${name}`);
    const out = this.out = this.canvas.getContext('2d');
    out.setTransform(devicePixelRatio, 0, 0, devicePixelRatio, 0, 0);
    out.clearRect(0, 0, this.width, this.element.clientHeight);
    out.font = '12px system-ui, "DejaVu Sans", sans-serif';
    out.textBaseline = 'middle';
    const scrolled = this.element.scrollTop;
    const inView = y => y + rowHeight > scrolled && y < scrolled + this.element.clientHeight;

    out.save();
    out.beginPath();
    out.rect(labelWidth, axisHeight, this.width, this.element.clientHeight);
    out.clip();
    this.mark(this.chosen, this.colors('line'));
    out.translate(0, -scrolled);
    const rows = this.rows.filter(row => inView(row.y));
    // All arrows begin at the top, so those to rows out of view pass through.
    for (const row of this.rows) if (row.kind === 'event' && row.y > scrolled) this.drawArrows(row);
    for (const row of rows) this.drawRow(row);
    for (const row of rows) this.drawRefusals(row);
    for (const call of [this.chosen, this.pointed]) if (call) this.outline(call);
    out.restore();

    out.fillStyle = this.colors('ink');
    for (const label of this.labels) {
      const y = label.y + rowHeight / 2 - scrolled;
      if (y > axisHeight) out.fillText(label.text, 10, y);
    }
    out.fillStyle = this.colors('soft');
    if (scrolled < rowHeight) out.fillText('service', 10, axisHeight + rowHeight / 2 - scrolled);
    this.drawAxis();
  }

  // The calls of a row that are in view, from left to right; of those that share a pixel only the first.
  * inView(row, wanted) {
    const until = this.from + this.span;
    let last = -Infinity;
    for (let i = firstWhere(row.calls, it => it.to >= this.from); i < row.calls.length && row.calls[i].from <= until; ++i) {
      const call = row.calls[i];
      if (!wanted(call) || !this.visible(call)) continue;
      const right = this.xOf(call.to);
      if (right < last + 1) continue;
      const left = Math.max(this.xOf(call.from), last);
      last = Math.max(right, left + 2);
      yield [call, left, last];
    }
  }

  drawRow(row) {
    const { out } = this;
    out.fillStyle = this.colors(row.kind);
    const names = [];
    for (const [call, left, right] of this.inView(row, call => !call.refusal)) {
      out.globalAlpha = call.kind === 'gone' ? 0.4 : 0.75;
      out.fillRect(left, row.y + 3, right - left, rowHeight - 6);
      if (right - left > 45) names.push([call.operation, Math.max(left, labelWidth), right]);
    }
    out.globalAlpha = 1;
    out.fillStyle = this.colors('paper');
    for (const [name, left, right] of names) this.write(name, left + 4, right, row.y);
  }

  drawRefusals(row) {
    const { out } = this;
    out.fillStyle = this.colors('refused');
    let free = -Infinity; // where the last name ends
    for (const [call, left, right] of this.inView(row, call => call.refusal)) {
      out.fillRect(left, row.y + 3, Math.max(right - left, 3), rowHeight - 6);
      const { width } = out.measureText(call.refusal);
      const x = Math.min(Math.max(left, labelWidth), this.width - width - 4);
      if (x < free) continue;
      out.fillText(call.refusal, x, row.y + rowHeight + nameHeight / 2 - 2);
      free = x + width + 8;
    }
  }

  // From the service to who heard the event.
  drawArrows(row) {
    const { out } = this;
    const top = axisHeight + rowHeight / 2;
    out.strokeStyle = out.fillStyle = this.colors('event');
    out.beginPath();
    for (const [call, left] of this.inView(row, () => true)) {
      const x = Math.max(this.xOf(call.from), left) + 0.5;
      const bottom = row.y + 3;
      out.moveTo(x, top);
      out.lineTo(x, bottom - 4);
      out.fillRect(x - 2, top - 2, 4, 4);
      out.moveTo(x - 4, bottom - 6);
      out.lineTo(x, bottom);
      out.lineTo(x + 4, bottom - 6);
    }
    out.stroke();
  }

  drawAxis() {
    const { out } = this;
    out.strokeStyle = this.colors('line');
    out.beginPath();
    out.moveTo(0, axisHeight - 0.5);
    out.lineTo(this.width, axisHeight - 0.5);
    const step = 120;
    out.fillStyle = this.colors('soft');
    for (let x = labelWidth; x < this.width - 60; x += step) {
      const time = this.timeAt(this.placeOf(x));
      out.moveTo(x + 0.5, axisHeight - 6);
      out.lineTo(x + 0.5, axisHeight);
      out.fillText(timeText(Math.max(0, Math.round(time))), x + 4, axisHeight / 2);
    }
    out.stroke();
  }

  mark(call, color) {
    if (!call) return;
    this.out.fillStyle = color;
    this.out.fillRect(Math.round(this.xOf(call.from)), axisHeight, 1, this.element.clientHeight);
  }

  outline(call) {
    if (!this.visible(call)) return;
    const left = this.xOf(call.from);
    this.out.strokeStyle = this.colors('chosen');
    this.out.lineWidth = 2;
    this.out.strokeRect(left - 2, call.row.y + 1, Math.max(this.xOf(call.to) - left, 2) + 4, rowHeight - 2);
    this.out.lineWidth = 1;
  }

  // A name within a bar, cut where it does not fit.
  write(text, left, right, y) {
    const fits = Math.floor((right - left - 4) / 6.6);
    if (fits > 2) this.out.fillText(text.length <= fits ? text : `${text.slice(0, fits - 1)}…`, left, y + rowHeight / 2 + 0.5);
  }
}
