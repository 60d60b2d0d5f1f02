// The host's own text rules, written out in JavaScript so the tests can check the library against
// them: how the host reads a field of a page message, how it reads the hit rectangles, and how it
// escapes the texts it writes into its replies. The host is not a JSON parser; these are not either.

const WHITE = new Set([' ', '\t', '\n', '\v', '\f', '\r']);

/** The value of `key` in `message` as the host reads it: a string unescaped, anything else raw. */
export function jsonField(message, key) {
  const needle = `"${key}"`;
  if (needle.length > message.length) return '';
  const at = message.indexOf(needle);
  if (at < 0) return '';
  const colon = message.indexOf(':', at + needle.length);
  if (colon < 0) return '';
  let i = colon + 1;
  while (i < message.length && WHITE.has(message[i])) i += 1;
  if (i >= message.length) return '';
  return message[i] === '"' ? readString(message, i + 1) : readRaw(message, i);
}

function readString(message, start) {
  let out = '';
  for (let i = start; i < message.length; i += 1) {
    const c = message[i];
    if (c === '"') return out;
    if (c !== '\\') {
      out += c;
      continue;
    }
    if (i + 1 >= message.length) return out + c;
    const next = message[i + 1];
    if (next === 'n' || next === 'r' || next === 't') {
      out += { n: '\n', r: '\r', t: '\t' }[next];
      i += 1;
    } else if (next === 'u' && i + 1 + 4 < message.length) {
      const hex = /^[0-9a-fA-F]*/.exec(message.slice(i + 2, i + 6))[0];
      out += String.fromCharCode((hex ? parseInt(hex, 16) : 0) & 0xffff);
      i += 5;
    } else {
      out += next;
      i += 1;
    }
  }
  return out;
}

function readRaw(message, start) {
  let depth = 0;
  for (let i = start; i < message.length; i += 1) {
    const c = message[i];
    if (c === '[' || c === '{') {
      depth += 1;
    } else if (c === ']' || c === '}') {
      if (depth === 0) return message.slice(start, i);
      depth -= 1;
      if (depth === 0) return message.slice(start, i + 1);
    } else if (c === ',' && depth === 0) {
      return message.slice(start, i);
    }
  }
  return message.slice(start);
}

/** The rectangles the host takes from the raw text of a "rects" field. */
export function parseRects(text) {
  const numbers = [];
  let token = '';
  for (const c of `${text} `) {
    if (/[0-9.-]/.test(c)) {
      token += c;
      continue;
    }
    if (token) numbers.push(leadingNumber(token));
    token = '';
  }
  const rects = [];
  for (let i = 0; i + 4 <= numbers.length; i += 4) rects.push(numbers.slice(i, i + 4).map((n) => Math.trunc(n) | 0));
  return rects;
}

// The longest prefix that reads as a decimal number, as the C library's string-to-double does.
function leadingNumber(token) {
  const match = /^-?(\d+\.?\d*|\.\d+)/.exec(token);
  return match ? Number(match[0]) : 0;
}

/** The host's escaping of a text it writes into a reply (no surrounding quotes). */
export function jsonEscape(text) {
  let out = '';
  for (const c of text) {
    for (let k = 0; k < c.length; k += 1) {
      const unit = c.charCodeAt(k);
      const ch = c[k];
      if (ch === '\t') out += '\\t';
      else if (ch === '\n') out += '\\n';
      else if (ch === '\r') out += '\\r';
      else if (ch === '"') out += '\\"';
      else if (ch === '\\') out += '\\\\';
      else if (unit < 0x20) out += `\\u${unit.toString(16).padStart(4, '0')}`;
      else out += ch;
    }
  }
  return out;
}

/** The host's messages to the page, built the way the host builds them. */
export const hostMessages = {
  show: (pad = '') => `{"type":"show"${pad ? `,"pad":"${jsonEscape(pad)}"` : ''}}`,
  close: () => '{"type":"close"}',
  away: () => '{"type":"away"}',
  back: () => '{"type":"back"}',
  host: () => '{"type":"host","through":true,"hit":true}',
  note: (json) => `{"type":"note","note":${json}}`,
  warn: (what) => `{"type":"warn","what":"${what}"}`,
  file: (name, ok, text) => `{"type":"file","name":"${jsonEscape(name)}","ok":${ok},"text":"${jsonEscape(ok ? text : '')}"}`,
  saved: (name, ok) => `{"type":"saved","name":"${jsonEscape(name)}","ok":${ok}}`,
};

/** What the host sends the game for a page's "game" message, or null when it drops it. */
export function gameDatagram(message) {
  const cmd = jsonField(message, 'cmd');
  const arg = jsonField(message, 'arg');
  const bytes = (s) => Buffer.byteLength(s, 'utf8');
  if (bytes(cmd) < 1 || bytes(cmd) > 39 || !/^[a-z_]+$/.test(cmd)) return null;
  if (bytes(arg) >= 200 || /[\r\n]/.test(arg)) return null;
  return `GRAO game ${cmd}${arg ? ` ${arg}` : ''}`;
}
