// The recording: its lines as calls, what each is named, and which were refused.
'use strict';

const errnoNames = {
  1: 'EPERM', 2: 'ENOENT', 3: 'ESRCH', 4: 'EINTR', 5: 'EIO', 6: 'ENXIO', 7: 'E2BIG', 9: 'EBADF', 11: 'EAGAIN', 12: 'ENOMEM',
  13: 'EACCES', 14: 'EFAULT', 16: 'EBUSY', 17: 'EEXIST', 19: 'ENODEV', 22: 'EINVAL', 24: 'EMFILE', 27: 'EFBIG', 28: 'ENOSPC',
  32: 'EPIPE', 33: 'EDOM', 34: 'ERANGE', 38: 'ENOSYS', 61: 'ENODATA', 71: 'EPROTO', 75: 'EOVERFLOW', 95: 'EOPNOTSUPP',
  110: 'ETIMEDOUT', 125: 'ECANCELED',
};

// Identifiers have 64 bits, of which numbers here keep 53; the longer ones become BigInts.
const parse = line => JSON.parse(
  line.replace(/"(?:[^"\\]|\\.)*"|-?\d{16,}(?![\d.eE])/g, word => word[0] === '"' ? word : `"\\u0001${word}"`),
  (_, value) => typeof value === 'string' && value[0] === '\u0001' ? BigInt(value.slice(1)) : value);

// As JSON, with spaces; over several lines when it is long.
function textOf(value, indent = '') {
  if (typeof value === 'bigint') return String(value);
  if (value === null || typeof value !== 'object') return JSON.stringify(value);
  const list = Array.isArray(value);
  const further = `${indent}  `;
  const parts = inside => list ? value.map(it => textOf(it, inside))
    : Object.entries(value).map(([name, it]) => `${JSON.stringify(name)}: ${textOf(it, inside)}`);
  const [open, close] = list ? '[]' : '{}';
  const short = open + parts(indent).join(', ') + close;
  if (short.length + indent.length <= 90 && !short.includes('\n')) return short;
  const plain = list && value.every(it => it === null || typeof it !== 'object');
  return plain ? short : `${open}\n${further}${parts(further).join(`,\n${further}`)}\n${indent}${close}`;
}

function nameOfError(status) {
  if (status.kind === 'service-specific') return errnoNames[-status.code] ?? `error ${status.code}`;
  const name = /\b(EX_(?!TRANSACTION_FAILED)\w+)|'([A-Z_]{4,})\b/.exec(status.description ?? '');
  return name ? name[1] ?? name[2] : `${status.kind} ${status.code}`;
}

// The name of what a call was refused with; empty for one that was not.
function refusalOf(call) {
  if (call.kind === 'gone') return '';
  if (call.status !== 'ok') return nameOfError(call.status);
  if (call.why.length) return call.why[0].replace(/:.*/s, '');
  if (call.operation === 'present') return call.answer === 0 ? 'not presented' : '';
  const status = call.operation === 'updateDisplayBrightness' ? call.answer?.[0] : call.answer;
  return typeof status === 'number' && status < 0 ? errnoNames[-status] ?? String(status) : '';
}

function callOf(line) {
  const json = parse(line);
  const kind = 'gone' in json ? 'gone' : 'event' in json ? 'event' : 'request';
  const call = {
    kind, n: json.n, time: json.time, took: json.took ?? 0, client: json.client,
    target: json.interface ?? json.gone, operation: json.operation ?? json.event ?? 'gone',
    arguments: json.arguments ?? [], status: json.status, answer: json.answer ?? null,
    why: json.refused ?? [], // by the chip, as far as the recording tells
  };
  call.refusal = refusalOf(call);
  call.name = `${call.target.replace(/ .*/, '')} ${call.operation}`;
  call.text = `${call.target} ${call.operation} ${textOf(call.arguments)} ${textOf(call.answer)} ${call.refusal} ${call.why.join(' ')}`.toLowerCase();
  return call;
}

function readRecording(text, about) {
  const calls = [];
  let ending = 'ends early'; // unless its last line is there
  for (const line of text.split('\n').slice(1)) {
    if (line.startsWith('{"end":')) {
      const { open } = JSON.parse(line);
      ending = open.length ? `${open.length} had not ended` : '';
    } else if (line.includes('{')) {
      calls.push(callOf(line));
    }
  }
  // A recording has them as they ended.
  calls.sort((a, b) => a.n - b.n);
  calls.forEach((call, index) => { call.index = index; });
  const clients = [...new Set(calls.map(call => call.client))].sort((a, b) => a - b);
  const of = kind => calls.filter(call => call.kind === kind).length;
  return {
    about, calls, clients, ending,
    operations: [...new Set(calls.map(call => call.name))].sort(),
    requests: of('request'), events: of('event'), refused: calls.filter(call => call.refusal).length,
    // "long display" of "int present(long display)"
    parametersOf: call => (/\((.*)\)/.exec(about.signatures?.[call.name] ?? '')?.[1] ?? '').split(', '),
  };
}

function timeText(microseconds) {
  if (microseconds < 1000) return `${microseconds} µs`;
  if (microseconds < 1e6) return `${+(microseconds / 1000).toPrecision(4)} ms`;
  return `${+(microseconds / 1e6).toFixed(3)} s`;
}

const plural = (count, word) => `${count} ${word}${count === 1 ? '' : 's'}`;
