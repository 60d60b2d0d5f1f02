// gra-overlay.js: the page's side of the gra-overlay host, as one dependency-free ES module.
//
//   import { connect } from './gra-overlay.js';
//   const overlay = connect();
//   overlay.on('show', ({ pad }) => ...);
//
// Inside the overlay the host is reached through window.chrome.webview. Opened in an ordinary
// browser there is no such object; the library then talks to a small simulated host (the
// development bridge at the end of this file) so a page can be built and tried anywhere.

/** Interaction modes the page may ask for with mode(). */
export const MODES = Object.freeze(['hidden', 'passive', 'active']);
/** The only two files the host reads and writes for the page (names compared without case). */
export const PAGE_FILES = Object.freeze(['gra_pad.json', 'gra_overlay.json']);
/** Message types the host itself sends to the page. */
export const HOST_TYPES = Object.freeze(['show', 'close', 'away', 'back', 'note', 'warn', 'host', 'file', 'saved']);
/** What the host's "warn" message says: why the overlay cannot work, or that it can again. */
export const WARNINGS = Object.freeze(['elevated', 'fullscreen', 'windowed']);

const EVENTS = new Set([...HOST_TYPES, 'page', 'message']);
const encoder = new TextEncoder();
const CONNECTION = Symbol.for('gra-overlay.connection');
const START = Symbol('start');

/** Length of a text in UTF-8 bytes, the unit the host measures game commands in. */
export function utf8Length(text) {
  return encoder.encode(text).length;
}

// JSON writes U+0008 and U+000C as \b and \f, which the host reads back as the letters b and f.
// Texts that must arrive exactly are refused with these characters instead of being mangled.
const MANGLED = /[\u0008\u000c]/;

// The library's entry point that the page's own code called, while one runs. An error for the
// author's mistake gets its stack from there, so that the console and the error event name the
// author's line, not one in this file.
let entryPoint = null;

function fail(Kind, text) {
  const error = new Kind(`gra-overlay: ${text}`);
  if (entryPoint && typeof Error.captureStackTrace === 'function') Error.captureStackTrace(error, entryPoint);
  throw error;
}

/** Wraps a function that pages call, so that the errors it throws point at the page's call. */
function authorFacing(fn) {
  const entry = function (...args) {
    if (entryPoint) return fn.apply(this, args);
    entryPoint = entry;
    try {
      return fn.apply(this, args);
    } finally {
      entryPoint = null;
    }
  };
  return entry;
}

function authorFacingMethods(prototype) {
  for (const name of Object.getOwnPropertyNames(prototype)) {
    const descriptor = Object.getOwnPropertyDescriptor(prototype, name);
    if (name === 'constructor' || typeof descriptor.value !== 'function') continue;
    Object.defineProperty(prototype, name, { ...descriptor, value: authorFacing(descriptor.value) });
  }
}

function checkFileName(name) {
  if (typeof name !== 'string') fail(TypeError, 'a page file name must be a string');
  if (!PAGE_FILES.includes(name.toLowerCase())) {
    fail(RangeError, `the host only keeps ${PAGE_FILES.join(' and ')}, not "${name}"`);
  }
  return name;
}

function checkExactText(text, what) {
  if (typeof text !== 'string') fail(TypeError, `${what} must be a string`);
  if (MANGLED.test(text)) fail(TypeError, `${what} must not hold a backspace or form feed character`);
  return text;
}

/**
 * Checks a command for the game exactly as the host does before forwarding it, and returns the
 * argument as a string. The host drops a failing command without a word; this throws instead.
 */
export const checkGameCommand = authorFacing((cmd, arg = '') => {
  if (typeof cmd !== 'string') fail(TypeError, 'game(): the command must be a string');
  const length = utf8Length(cmd);
  if (length < 1 || length > 39) fail(RangeError, `game(): the command must be 1 to 39 bytes, "${cmd}" has ${length}`);
  if (!/^[a-z_]+$/.test(cmd)) fail(TypeError, `game(): the command may hold only a-z and _, not "${cmd}"`);
  if (typeof arg === 'number' || typeof arg === 'boolean') arg = String(arg);
  checkExactText(arg, 'game(): the argument');
  if (utf8Length(arg) >= 200) fail(RangeError, `game(): the argument must be shorter than 200 bytes, it has ${utf8Length(arg)}`);
  if (/[\r\n]/.test(arg)) fail(TypeError, 'game(): the argument must not hold a line break');
  return arg;
});

/** A rectangle [x, y, width, height] in whole CSS pixels that covers a DOMRect-like box. */
export function rectOf(box) {
  const x = Math.floor(box.left);
  const y = Math.floor(box.top);
  return [x, y, Math.ceil(box.right) - x, Math.ceil(box.bottom) - y];
}

// The host reads numbers without exponents, so every coordinate stays a plain integer.
function plainInteger(value) {
  if (typeof value !== 'number' || !Number.isFinite(value)) fail(TypeError, 'a rectangle needs four finite numbers');
  return Math.max(-1e9, Math.min(1e9, Math.round(value))) || 0;
}

/** Builders of every message the page sends, each field in the order the host reads it. */
export const messages = Object.freeze(Object.fromEntries(Object.entries({
  ready: () => ({ type: 'ready' }),
  cover: () => ({ type: 'cover', on: false }),
  hide: () => ({ type: 'hide' }),
  mode(name) {
    if (!MODES.includes(name)) fail(RangeError, `mode() takes ${MODES.join(', ')}, not "${name}"`);
    return { type: 'mode', mode: name };
  },
  through: (on) => ({ type: 'through', on: Boolean(on) }),
  modal: (on) => ({ type: 'modal', on: Boolean(on) }),
  region(rects) {
    if (!Array.isArray(rects)) fail(TypeError, 'region() takes an array of [x, y, width, height]');
    return {
      type: 'region',
      rects: rects.map((r) => {
        if (!Array.isArray(r) || r.length !== 4) fail(TypeError, 'a rectangle is [x, y, width, height]');
        return r.map(plainInteger);
      }),
    };
  },
  load: (name) => ({ type: 'load', file: checkFileName(name) }),
  save: (name, text) => ({ type: 'save', file: checkFileName(name), text: checkExactText(text, 'the saved text') }),
  game(cmd, arg = '') {
    const checked = checkGameCommand(cmd, arg);
    return { type: 'game', cmd, arg: checked };
  },
  log: (text) => ({ type: 'log', text: String(text).replace(/[\u0008\u000c]/g, ' ') }),
}).map(([name, build]) => [name, authorFacing(build)])));

function isObject(value) {
  return typeof value === 'object' && value !== null && !Array.isArray(value);
}

/**
 * Turns a message from the host into the event it raises: one of HOST_TYPES with its fields
 * given defaults, or "page" for anything else (what the game sent with its "page" command).
 */
export function readHostMessage(data) {
  const type = isObject(data) ? data.type : undefined;
  if (!HOST_TYPES.includes(type)) return { event: 'page', detail: data };
  const text = (value) => (typeof value === 'string' ? value : '');
  switch (type) {
    case 'show': return { event: type, detail: { type, pad: text(data.pad) } };
    case 'note': return { event: type, detail: { type, note: data.note } };
    case 'warn': return { event: type, detail: { type, what: text(data.what) } };
    case 'host': return { event: type, detail: { type, through: data.through === true, hit: data.hit === true } };
    case 'file': return { event: type, detail: { type, name: text(data.name), ok: data.ok === true, text: text(data.text) } };
    case 'saved': return { event: type, detail: { type, name: text(data.name), ok: data.ok === true } };
    default: return { event: type, detail: { type } };
  }
}

class Emitter {
  #handlers = new Map();
  #onError;

  constructor(onError) {
    this.#onError = onError;
  }

  on(event, handler) {
    if (!EVENTS.has(event)) fail(RangeError, `there is no "${event}" event; there are ${[...EVENTS].join(', ')}`);
    if (typeof handler !== 'function') fail(TypeError, 'an event handler must be a function');
    if (!this.#handlers.has(event)) this.#handlers.set(event, new Set());
    this.#handlers.get(event).add(handler);
    return () => this.off(event, handler);
  }

  off(event, handler) {
    this.#handlers.get(event)?.delete(handler);
  }

  has(event) {
    return (this.#handlers.get(event)?.size ?? 0) > 0;
  }

  emit(event, detail) {
    // The handlers are the page's own code, even when a call into the library raised the event.
    const caller = entryPoint;
    entryPoint = null;
    try {
      for (const handler of [...(this.#handlers.get(event) ?? [])]) {
        try {
          handler(detail);
        } catch (error) {
          this.#onError(error, event);
        }
      }
    } finally {
      entryPoint = caller;
    }
  }
}

// Replies to load and save come back in the order asked (the host answers each at once), so a
// queue per file name pairs them; a request that timed out keeps its place to swallow its reply.
class ReplyQueues {
  #queues = new Map();
  #win;

  constructor(win) {
    this.#win = win;
  }

  wait(key, timeout) {
    return new Promise((resolve, reject) => {
      const entry = { resolve, timer: 0, dead: false };
      if (timeout > 0) {
        entry.timer = this.#win.setTimeout(() => {
          entry.dead = true;
          reject(new Error(`gra-overlay: no reply from the host for ${key} within ${timeout} ms`));
        }, timeout);
      }
      if (!this.#queues.has(key)) this.#queues.set(key, []);
      this.#queues.get(key).push(entry);
    });
  }

  settle(key, value) {
    const queue = this.#queues.get(key);
    const entry = queue?.shift();
    if (!entry) return;
    if (queue.length === 0) this.#queues.delete(key);
    this.#win.clearTimeout(entry.timer);
    if (!entry.dead) entry.resolve(value);
  }
}

// Keeps the host's hit region equal to the boxes of the marked elements. Every change is
// coalesced into one look per animation frame, and a message goes out only when the boxes
// differ from the last ones sent: each message costs the host a SetWindowRgn.
class HitRegions {
  #win;
  #doc;
  #selector;
  #send;
  #frame = 0;
  #lastKey = null;
  #observed = new Set();
  #resizes;
  #mutations;
  #schedule = () => this.schedule();
  #frameEvents = ['transitionrun', 'transitionend', 'transitioncancel', 'animationstart', 'animationend', 'animationcancel'];

  constructor(win, attribute, send) {
    this.#win = win;
    this.#doc = win.document;
    this.#selector = `[${attribute}]`;
    this.#send = send;
  }

  get rects() {
    return this.#lastKey === null ? [] : JSON.parse(this.#lastKey);
  }

  start() {
    this.#resizes = new this.#win.ResizeObserver(this.#schedule);
    this.#mutations = new this.#win.MutationObserver(this.#schedule);
    this.#mutations.observe(this.#doc.documentElement, { subtree: true, childList: true, attributes: true, characterData: true });
    this.#win.addEventListener('resize', this.#schedule);
    this.#win.addEventListener('load', this.#schedule);
    this.#win.addEventListener('scroll', this.#schedule, { capture: true, passive: true });
    for (const type of this.#frameEvents) this.#doc.addEventListener(type, this.#schedule, true);
    this.schedule();
  }

  stop() {
    this.#resizes?.disconnect();
    this.#mutations?.disconnect();
    this.#win.removeEventListener('resize', this.#schedule);
    this.#win.removeEventListener('load', this.#schedule);
    this.#win.removeEventListener('scroll', this.#schedule, { capture: true });
    for (const type of this.#frameEvents) this.#doc.removeEventListener(type, this.#schedule, true);
    if (this.#frame) this.#win.cancelAnimationFrame(this.#frame);
    this.#frame = 0;
  }

  schedule() {
    if (!this.#frame) this.#frame = this.#win.requestAnimationFrame(() => this.#onFrame());
  }

  /** Sends the region at once if none was ever sent (a hidden page draws no frames). */
  sendFirst() {
    if (this.#lastKey === null) this.#sendIfChanged();
  }

  #onFrame() {
    this.#frame = 0;
    const marked = this.#sendIfChanged();
    // A running animation or transition can move a marked element without any event: follow it
    // frame by frame until it stops.
    if (this.#moving(marked)) this.schedule();
  }

  #sendIfChanged() {
    const marked = [...this.#doc.querySelectorAll(this.#selector)];
    this.#observe(marked);
    const rects = [];
    for (const element of marked) {
      if (element.checkVisibility && !element.checkVisibility({ visibilityProperty: true })) continue;
      const rect = rectOf(element.getBoundingClientRect());
      if (rect[2] > 0 && rect[3] > 0) rects.push(rect);
    }
    const key = JSON.stringify(rects);
    if (key !== this.#lastKey) {
      this.#lastKey = key;
      this.#send(rects);
    }
    return marked;
  }

  #observe(marked) {
    const now = new Set(marked);
    for (const element of this.#observed) if (!now.has(element)) this.#resizes.unobserve(element);
    for (const element of now) if (!this.#observed.has(element)) this.#resizes.observe(element);
    this.#observed = now;
  }

  #moving(marked) {
    if (marked.length === 0 || !this.#doc.getAnimations) return false;
    return this.#doc.getAnimations().some((animation) => {
      const target = animation.effect?.target;
      return animation.playState === 'running' && target && marked.some((element) => target.contains(element));
    });
  }
}

/** The page's connection to the host. Made by connect(). */
export class Overlay {
  #win;
  #link;
  #options;
  #events;
  #replies;
  #regions = null;
  #readySent = false;
  #coverSent = false;
  #away = false;
  #host = null;
  #errorsLogged = 0;
  #cleanups = [];
  #dev;

  constructor(win, link, options) {
    this.#win = win;
    this.#link = link;
    this.#options = options;
    this.#replies = new ReplyQueues(win);
    this.#events = new Emitter((error, event) => this.#reportError(`${event} handler: ${describeError(error)}`, error));
    this.#dev = link instanceof DevHost;
    this.#listen(link, 'message', (event) => this.#receive(event.data));
    if (options.reportErrors) this.#watchErrors();
  }

  /** True when no host is present and the development bridge answers instead. */
  get dev() {
    return this.#dev;
  }

  /** True while the game is minimised or another application is in front. */
  get away() {
    return this.#away;
  }

  /** What the host said about itself in its "host" message, or null before it did. */
  get host() {
    return this.#host;
  }

  /** The hit rectangles last sent to the host, [x, y, width, height] each. */
  get rects() {
    return this.#regions ? this.#regions.rects : [];
  }

  on(event, handler) {
    return this.#events.on(event, handler);
  }

  once(event, handler) {
    const off = this.#events.on(event, (detail) => {
      off();
      handler(detail);
    });
    return off;
  }

  off(event, handler) {
    this.#events.off(event, handler);
  }

  /** Tells the host the page listens; it answers with what was held back. Sent once per page load. */
  ready() {
    if (this.#readySent) return false;
    this.#readySent = true;
    this.#post(messages.ready());
    return true;
  }

  /** Takes down the opaque cover the host shows until the page has drawn. Sent once. */
  coverOff() {
    if (this.#coverSent) return false;
    this.#coverSent = true;
    this.#regions?.sendFirst();
    this.#post(messages.cover());
    return true;
  }

  mode(name) {
    this.#post(messages.mode(name));
  }

  hide() {
    this.#post(messages.hide());
  }

  through(on = true) {
    this.#post(messages.through(on));
  }

  modal(on = true) {
    this.#post(messages.modal(on));
  }

  log(text) {
    this.#post(messages.log(text));
  }

  game(cmd, arg = '') {
    this.#post(messages.game(cmd, arg));
  }

  /** Sends the hit region by hand, for pages that do not mark elements. */
  region(rects) {
    this.#post(messages.region(rects));
  }

  /** Resolves with the file's text, or null when the host has no such file or refused it. */
  async load(name) {
    const message = messages.load(name);
    const reply = this.#waitFor('file', name);
    this.#post(message);
    const { ok, text } = await reply;
    return ok ? text : null;
  }

  /** Resolves with true when the host has written the file, false when it could not. */
  async save(name, text) {
    const message = messages.save(name, text);
    const reply = this.#waitFor('saved', name);
    this.#post(message);
    return (await reply).ok;
  }

  /** load() for JSON files: the parsed value, or fallback when missing or unreadable. */
  async loadJSON(name, fallback = null) {
    const text = await this.load(name);
    if (text === null || text.trim() === '') return fallback;
    try {
      return JSON.parse(text.replace(/^\uFEFF/, ''));
    } catch (error) {
      this.log(`${name} is not valid JSON (${error.message}); using defaults`);
      return fallback;
    }
  }

  saveJSON(name, value) {
    return this.save(name, JSON.stringify(value, null, 2));
  }

  /** Looks at the marked elements again in the next frame (changes are noticed by themselves). */
  updateRegion() {
    this.#regions?.schedule();
  }

  /** Stops listening and watching; the page keeps whatever the host last received. */
  disconnect() {
    this.#regions?.stop();
    for (const cleanup of this.#cleanups.splice(0)) cleanup();
    if (this.#win[CONNECTION] === this) delete this.#win[CONNECTION];
  }

  /** Called once, by connect(). */
  [START]() {
    const { hitAttribute, ready, coverOff } = this.#options;
    const doc = this.#win.document;
    if (hitAttribute && doc && this.#win.ResizeObserver) {
      this.#regions = new HitRegions(this.#win, hitAttribute, (rects) => this.#post(messages.region(rects)));
      this.#regions.start();
    }
    // The host's answers arrive as tasks of their own, so handlers the caller adds right after
    // connect() returns are in place for them.
    if (ready) this.ready();
    if (coverOff) this.#afterFirstPaint(() => this.coverOff());
  }

  #post(message) {
    this.#link.postMessage(message);
  }

  #waitFor(type, name) {
    return this.#replies.wait(`${type}:${name}`, this.#options.replyTimeout);
  }

  #receive(data) {
    this.#events.emit('message', data);
    const { event, detail } = readHostMessage(data);
    if (event === 'away') this.#away = true;
    if (event === 'back') this.#away = false;
    if (event === 'host') this.#host = { through: detail.through, hit: detail.hit };
    if (event === 'file' || event === 'saved') this.#replies.settle(`${event}:${detail.name}`, detail);
    // A page without its own close handler is hidden at once, so the game's "hide" always works.
    if (event === 'close' && !this.#events.has('close')) this.hide();
    this.#events.emit(event, detail);
  }

  // The cover goes once the loaded page has drawn a frame: a task queued from inside a frame
  // callback runs after that frame. A hidden web view draws no frames, hence the timer.
  #afterFirstPaint(callback) {
    const win = this.#win;
    let done = false;
    const once = () => {
      if (!done) {
        done = true;
        callback();
      }
    };
    const loaded = () => {
      win.requestAnimationFrame?.(() => win.setTimeout(once, 0));
      win.setTimeout(once, 1000);
    };
    if (!win.document || win.document.readyState === 'complete') loaded();
    else this.#listen(win, 'load', loaded, { once: true });
  }

  #watchErrors() {
    this.#listen(this.#win, 'error', (event) => {
      const where = event.filename ? ` (${event.filename}:${event.lineno})` : '';
      this.#reportError(`${event.message}${where}`);
    });
    this.#listen(this.#win, 'unhandledrejection', (event) => {
      this.#reportError(`unhandled rejection: ${describeError(event.reason)}`);
    });
  }

  // Errors go to the host's log too, where a player's bug report will find them; a broken
  // page could flood it, so only the first few are sent.
  #reportError(text, error) {
    if (error) console.error('gra-overlay:', error);
    if (!this.#options.reportErrors || this.#errorsLogged >= 20) return;
    this.#errorsLogged += 1;
    this.log(`error: ${text}`);
  }

  #listen(target, type, handler, options) {
    target.addEventListener(type, handler, options);
    this.#cleanups.push(() => target.removeEventListener(type, handler, options));
  }
}

authorFacingMethods(Overlay.prototype);

function describeError(error) {
  if (error instanceof Error) return `${error.name}: ${error.message}`;
  return String(error);
}

const DEFAULTS = Object.freeze({
  webview: null,
  window: null,
  ready: true,
  coverOff: true,
  hitAttribute: 'data-hit',
  replyTimeout: 10000,
  reportErrors: true,
  devPanel: true,
});

/**
 * Connects the page to the host and returns its Overlay. The first call decides the options;
 * later calls return the same Overlay.
 */
export const connect = authorFacing((options = {}) => {
  const settings = { ...DEFAULTS, ...options };
  const win = settings.window ?? globalThis;
  if (win[CONNECTION]) return win[CONNECTION];
  const link = settings.webview ?? win.chrome?.webview ?? new DevHost(win, settings.devPanel);
  const overlay = new Overlay(win, link, settings);
  win[CONNECTION] = overlay;
  overlay[START]();
  return overlay;
});

// ---------------------------------------------------------------------------------------------
// Development bridge: a simulated host for pages opened in an ordinary browser. It answers the
// page as the real host does (ready, modes, files kept in localStorage), logs every message both
// ways on the console, and offers window.graOverlayDev and a small panel to play the game's side.

const DEV_STORE = 'gra-overlay-dev:';
const WARNING_LINES = Object.freeze({
  elevated: 'game runs elevated and this program does not - Windows keeps the overlay from the game\'s window and input (start both elevated, or neither)',
  fullscreen: 'the game went exclusive fullscreen - the overlay cannot be seen over it (borderless windowed works)',
  windowed: 'the game left exclusive fullscreen',
});

class DevHost {
  #win;
  #listeners = new Set();
  #pageReady = false;
  #pendingPad = '';
  #held = [];
  #panel = null;
  state = { mode: 'hidden', cover: true, through: false, modal: false, rects: [] };

  constructor(win, withPanel) {
    this.#win = win;
    win.graOverlayDev = this.#consoleApi();
    console.info('gra-overlay: no host here (window.chrome.webview is missing); a simulated one answers. '
      + 'Play the game with graOverlayDev.show("pad"), .close(), .note(\'"text"\'), .away(), .back(), .page({...}), '
      + '.warn("elevated"|"fullscreen"|"windowed").');
    if (withPanel && win.document) {
      const start = () => { this.#panel = new DevPanel(win, this); };
      if (win.document.readyState === 'loading') win.addEventListener('DOMContentLoaded', start, { once: true });
      else start();
    }
  }

  addEventListener(type, listener) {
    if (type === 'message') this.#listeners.add(listener);
  }

  removeEventListener(type, listener) {
    this.#listeners.delete(listener);
  }

  postMessage(message) {
    const json = JSON.stringify(message);
    console.info('gra-overlay: page -> host', json);
    this.#panel?.record('page', json);
    this.#handle(JSON.parse(json));
    this.#panel?.update();
  }

  // The game's commands, as the host carries them out.
  show(pad = '') {
    this.#setMode('active');
    if (this.#pageReady) this.#deliver(pad ? { type: 'show', pad } : { type: 'show' });
    else this.#pendingPad = pad || '-';
  }

  close() {
    if (this.#pageReady) this.#deliver({ type: 'close' });
    else this.#setMode('hidden');
  }

  // The note's text as the game sends it after "note ": one JSON value ('"text"' or '{"title":"Quest"}').
  // Other values are sent as their JSON. As in the program, a hidden overlay becomes passive first,
  // and a text that is not one JSON value goes no further (the web view refuses it).
  note(json) {
    const text = typeof json === 'string' ? json : JSON.stringify(json);
    if (this.state.mode === 'hidden') this.#setMode('passive');
    let note;
    try {
      note = JSON.parse(text);
    } catch {
      console.warn(`gra-overlay: the note ${text} is not one JSON value; the program drops it. `
        + `A text is sent in quotes: ${JSON.stringify(String(text))}`);
      this.#panel?.update();
      return;
    }
    const message = { type: 'note', note };
    if (this.#pageReady) this.#deliver(message);
    else this.#held.push(message);
  }

  away() { this.#deliver({ type: 'away' }); }

  back() { this.#deliver({ type: 'back' }); }

  page(value) { this.#deliver(value); }

  // As the host tells them: the log line, the game's datagram, the page's message, which waits
  // for the page's "ready" like a note.
  warn(what) {
    if (!WARNINGS.includes(what)) fail(RangeError, `warn() takes ${WARNINGS.join(', ')}, not "${what}"`);
    console.info(`gra-overlay: host log: ${WARNING_LINES[what]}`);
    this.#toGame(`warn ${what}`);
    const message = { type: 'warn', what };
    if (this.#pageReady) this.#deliver(message);
    else this.#held.push(message);
  }

  #consoleApi() {
    const api = {};
    for (const name of ['show', 'close', 'note', 'away', 'back', 'page', 'warn']) api[name] = (...args) => this[name](...args);
    Object.defineProperty(api, 'state', { get: () => ({ ...this.state }) });
    return Object.freeze(api);
  }

  #handle(message) {
    const handlers = {
      ready: () => this.#onReady(),
      cover: () => { if (message.on !== true) this.state.cover = false; },
      through: () => { this.state.through = message.on === true; },
      hide: () => this.#setMode('hidden'),
      mode: () => this.#setMode(MODES.includes(message.mode) ? message.mode : 'hidden'),
      modal: () => this.#toGame(message.on === true ? 'modal on' : 'modal off'),
      region: () => { this.state.rects = message.rects; },
      load: () => this.#load(String(message.file ?? '')),
      save: () => this.#save(String(message.file ?? ''), String(message.text ?? '')),
      game: () => this.#toGame(`game ${message.cmd}${message.arg ? ` ${message.arg}` : ''}`),
      log: () => console.info(`gra-overlay: host log: page: ${message.text}`),
    };
    handlers[message.type]?.();
  }

  #onReady() {
    this.#pageReady = true;
    if (this.state.mode === 'active') {
      const pad = this.#pendingPad === '-' ? '' : this.#pendingPad;
      this.#deliver(pad ? { type: 'show', pad } : { type: 'show' });
    }
    this.#pendingPad = '';
    for (const message of this.#held.splice(0)) this.#deliver(message);
    this.#deliver({ type: 'host', through: true, hit: true });
  }

  #load(name) {
    const allowed = PAGE_FILES.includes(name.toLowerCase());
    const text = allowed ? this.#storage()?.getItem(DEV_STORE + name.toLowerCase()) ?? null : null;
    this.#deliver({ type: 'file', name, ok: text !== null, text: text ?? '' });
  }

  #save(name, text) {
    let ok = false;
    if (PAGE_FILES.includes(name.toLowerCase())) {
      try {
        this.#storage().setItem(DEV_STORE + name.toLowerCase(), text);
        ok = true;
      } catch { /* storage full or refused: the save fails as a full disk would */ }
    }
    console.info(`gra-overlay: host log: save ${name}: ${ok ? 'ok' : 'FAILED'}`);
    this.#deliver({ type: 'saved', name, ok });
  }

  #storage() {
    try {
      return this.#win.localStorage;
    } catch {
      return null;
    }
  }

  #setMode(mode) {
    if (mode !== this.state.mode) console.info(`gra-overlay: host log: mode ${mode}`);
    this.state.mode = mode;
    this.#toGame(`state ${mode}`);
    this.#panel?.update();
  }

  #toGame(text) {
    console.info(`gra-overlay: host -> game: GRAO ${text}`);
  }

  // The real host's messages arrive as tasks of their own, never inside the page's call.
  #deliver(message) {
    const json = JSON.stringify(message);
    this.#win.setTimeout(() => {
      console.info('gra-overlay: host -> page', json);
      this.#panel?.record('host', json);
      for (const listener of [...this.#listeners]) listener({ type: 'message', data: JSON.parse(json) });
      this.#panel?.update();
    }, 0);
  }
}

const PANEL_STYLE = `
:host { all: initial; position: fixed; left: 12px; bottom: 12px; z-index: 2147483647;
  font: 12px/1.4 system-ui, "Segoe UI", sans-serif; color: #e8e8f0; }
.box { width: 300px; background: #1b1d2b; border: 1px solid #3a3d55; border-radius: 8px;
  box-shadow: 0 8px 30px #0008; overflow: hidden; }
header { display: flex; align-items: center; gap: 6px; padding: 6px 8px; background: #262a3f; cursor: pointer; }
header b { flex: 1; }
.mode { padding: 1px 6px; border-radius: 9px; background: #3a3d55; }
.mode[data-mode=active] { background: #2f7a4f; } .mode[data-mode=passive] { background: #7a5a2f; }
.body { padding: 8px; display: grid; gap: 6px; }
:host([collapsed]) .body { display: none; }
.row { display: flex; gap: 4px; }
input[type=text] { flex: 1; min-width: 0; background: #11131e; color: inherit; border: 1px solid #3a3d55;
  border-radius: 4px; padding: 3px 5px; font: inherit; }
button { background: #34395a; color: inherit; border: 0; border-radius: 4px; padding: 3px 8px; font: inherit; cursor: pointer; }
button:hover { background: #444a72; }
label { display: flex; gap: 4px; align-items: center; }
ol { margin: 0; padding: 0; list-style: none; max-height: 120px; overflow: auto; font: 11px/1.35 ui-monospace, monospace;
  background: #11131e; border-radius: 4px; }
li { padding: 1px 5px; white-space: nowrap; overflow: hidden; text-overflow: ellipsis; }
li.page { color: #9fd3ff; } li.host { color: #ffd38a; }
`;

const PANEL_HTML = `
<div class="box">
  <header part="header"><b>gra-overlay dev host</b><span class="mode"></span><span class="toggle">–</span></header>
  <div class="body">
    <div class="row"><input type="text" name="pad" placeholder="pad text for show"><button data-do="show">Show</button><button data-do="close">Close</button></div>
    <div class="row"><input type="text" name="note" placeholder='note as the game sends it: "text" or {"title":…}'><button data-do="note">Note</button></div>
    <div class="row"><button data-do="away">Away</button><button data-do="back">Back</button></div>
    <div class="row"><button data-do="elevated">Elevated</button><button data-do="fullscreen">Fullscreen</button><button data-do="windowed">Windowed</button></div>
    <label><input type="checkbox" name="backdrop" checked> game backdrop</label>
    <label><input type="checkbox" name="clip" checked> show only the hit region (what the player sees)</label>
    <ol></ol>
  </div>
</div>`;

// The panel lives in a shadow root under <html>, beside <body>: the page's styles do not reach it,
// it is never part of the hit region, and clipping the body to the region leaves it visible.
class DevPanel {
  #win;
  #host;
  #root;
  #style;

  constructor(win, host) {
    this.#win = win;
    this.#host = host;
    const doc = win.document;
    const element = doc.createElement('gra-overlay-dev');
    this.#root = element.attachShadow({ mode: 'open' });
    this.#root.innerHTML = `<style>${PANEL_STYLE}</style>${PANEL_HTML}`;
    this.#style = doc.createElement('style');
    doc.head.append(this.#style);
    doc.documentElement.append(element);
    this.#wire(element);
    this.update();
  }

  record(from, json) {
    const list = this.#root.querySelector('ol');
    const item = this.#win.document.createElement('li');
    item.className = from;
    item.textContent = `${from === 'page' ? '→' : '←'} ${json}`;
    item.title = json;
    list.append(item);
    while (list.children.length > 40) list.firstElementChild.remove();
    list.scrollTop = list.scrollHeight;
  }

  update() {
    const { mode, rects } = this.#host.state;
    const badge = this.#root.querySelector('.mode');
    badge.textContent = mode;
    badge.dataset.mode = mode;
    this.#style.textContent = this.#pageStyle(mode, rects);
  }

  // What the player would see: the game behind, nothing of the page when hidden, and only the
  // hit rectangles of it otherwise.
  #pageStyle(mode, rects) {
    const flag = (name) => this.#root.querySelector(`[name=${name}]`).checked;
    const rules = [];
    if (flag('backdrop')) {
      rules.push('html { background: radial-gradient(ellipse at 30% 20%, #4b6a8a, transparent 60%),'
        + ' radial-gradient(ellipse at 80% 90%, #6b4a3a, transparent 55%), linear-gradient(160deg, #1d2b3a, #0c1118) fixed; }');
    }
    if (mode === 'hidden') rules.push('body { visibility: hidden !important; }');
    else if (flag('clip')) rules.push(`body { clip-path: ${clipPath(rects, this.#win.document.body)} !important; }`);
    return rules.join('\n');
  }

  #wire(element) {
    const field = (name) => this.#root.querySelector(`[name=${name}]`);
    const actions = {
      show: () => this.#host.show(field('pad').value),
      close: () => this.#host.close(),
      note: () => this.#host.note(field('note').value),
      away: () => this.#host.away(),
      back: () => this.#host.back(),
      elevated: () => this.#host.warn('elevated'),
      fullscreen: () => this.#host.warn('fullscreen'),
      windowed: () => this.#host.warn('windowed'),
    };
    this.#root.addEventListener('click', (event) => {
      const action = event.target.closest('button')?.dataset.do;
      if (action) actions[action]();
      else if (event.target.closest('header')) element.toggleAttribute('collapsed');
    });
    this.#root.addEventListener('change', () => this.update());
  }
}

function clipPath(rects, body) {
  const origin = body.getBoundingClientRect();
  const shapes = rects.map(([x, y, w, h]) => `M${x - origin.left} ${y - origin.top}h${w}v${h}h${-w}z`);
  return `path('${shapes.join('') || 'M0 0z'}')`;
}
