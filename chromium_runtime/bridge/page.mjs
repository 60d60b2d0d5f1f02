// One web view: a Chromium tab that does what the program asks of its
// controller and core web view, and sends its pixels to the runtime library
// inside Wine, which shows them in the program's window.
import fs from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { decodePng } from './png.mjs';

const SHIM = fs.readFileSync(path.join(path.dirname(fileURLToPath(import.meta.url)), 'webview_shim.js'), 'utf8');

const CONTENT_TYPES = {
  '.html': 'text/html; charset=utf-8', '.htm': 'text/html; charset=utf-8', '.js': 'text/javascript; charset=utf-8',
  '.mjs': 'text/javascript; charset=utf-8', '.css': 'text/css; charset=utf-8', '.json': 'application/json',
  '.svg': 'image/svg+xml', '.png': 'image/png', '.jpg': 'image/jpeg', '.jpeg': 'image/jpeg', '.gif': 'image/gif',
  '.webp': 'image/webp', '.ico': 'image/x-icon', '.woff': 'font/woff', '.woff2': 'font/woff2', '.ttf': 'font/ttf',
  '.txt': 'text/plain; charset=utf-8', '.wasm': 'application/wasm', '.mp3': 'audio/mpeg', '.ogg': 'audio/ogg',
  '.wav': 'audio/wav', '.mp4': 'video/mp4', '.webm': 'video/webm',
};

// Keys whose Windows virtual-key code the page must see with a name.
const KEY_NAMES = {
  8: ['Backspace', 'Backspace'], 9: ['Tab', 'Tab'], 13: ['Enter', 'Enter'], 16: ['Shift', 'ShiftLeft'],
  17: ['Control', 'ControlLeft'], 18: ['Alt', 'AltLeft'], 27: ['Escape', 'Escape'], 32: [' ', 'Space'],
  33: ['PageUp', 'PageUp'], 34: ['PageDown', 'PageDown'], 35: ['End', 'End'], 36: ['Home', 'Home'],
  37: ['ArrowLeft', 'ArrowLeft'], 38: ['ArrowUp', 'ArrowUp'], 39: ['ArrowRight', 'ArrowRight'],
  40: ['ArrowDown', 'ArrowDown'], 45: ['Insert', 'Insert'], 46: ['Delete', 'Delete'],
};

const MOUSE_TYPES = { down: 'mousePressed', up: 'mouseReleased', move: 'mouseMoved', wheel: 'mouseWheel' };
const CTRL = 2;
const CAPTURE_WAIT_MS = 1500;
const CAPTURE_TRIES = 5;

function keyIdentity(vk) {
  if (KEY_NAMES[vk]) return { key: KEY_NAMES[vk][0], code: KEY_NAMES[vk][1] };
  if (vk >= 0x41 && vk <= 0x5a) return { key: String.fromCharCode(vk + 32), code: `Key${String.fromCharCode(vk)}` };
  if (vk >= 0x30 && vk <= 0x39) return { key: String.fromCharCode(vk), code: `Digit${String.fromCharCode(vk)}` };
  if (vk >= 0x70 && vk <= 0x87) return { key: `F${vk - 0x6f}`, code: `F${vk - 0x6f}` };
  return { key: 'Unidentified', code: '' };
}

// One console argument as the console shows it, shortly.
function describeValue(value) {
  if (value.type === 'string') return value.value;
  if (value.unserializableValue) return value.unserializableValue;
  if (value.type === 'undefined') return 'undefined';
  if ('value' in value) return JSON.stringify(value.value);
  const preview = value.preview;
  if (preview?.properties && value.subtype !== 'error') {
    const items = preview.properties.map((p) => {
      const shown = p.type === 'string' ? JSON.stringify(p.value) : p.value;
      return preview.subtype === 'array' ? shown : `${p.name}: ${shown}`;
    });
    if (preview.overflow) items.push('…');
    return preview.subtype === 'array' ? `[${items.join(', ')}]` : `{${items.join(', ')}}`;
  }
  return value.description?.split('\n')[0] ?? value.type;
}

export class Page {
  #browser;
  #session;
  #target;
  #blankSession = null;
  #journal;
  #toRuntime;
  #say;
  #queue = Promise.resolve();
  #mappings = new Map();
  #size = { width: 0, height: 0 };
  #scale = 1;
  #visible = true;
  #settings = {};
  #source = '';
  // frames
  #seq = 0;
  #sent = null;          // pixels the runtime shows now
  #waitingFor = 0;       // frame number sent and not yet painted
  #next = null;          // newest frame that waits for the runtime
  #capturing = false;
  #captureAgain = false;
  #frameWaiters = new Set();  // the benchmark's watchers of new frames and of painted ones
  #paintWaiters = new Set();
  #requests = new Map();  // the page's loads under way, by request id: where each was asked for
  stats = { framesSent: 0, framesPainted: 0, bytesSent: 0, pageErrors: [], messagesFromPage: 0, messagesToPage: 0 };

  constructor({ browser, journal, toRuntime, say }) {
    this.#browser = browser;
    this.#journal = journal;
    this.#toRuntime = toRuntime;
    this.#say = say;
  }

  /** Opens the tab and prepares it; throws if the browser refuses. */
  async open({ width, height, scale, visible }) {
    const { targetId } = await this.#browser.send('Target.createTarget', { url: 'about:blank' });
    this.#target = targetId;
    ({ sessionId: this.#session } = await this.#browser.send('Target.attachToTarget', { targetId, flatten: true }));
    this.#browser.onEvent(this.#session, (method, params) => this.#onEvent(method, params));
    const send = (method, params) => this.#browser.send(method, params, this.#session);
    await send('Page.enable');
    await send('Runtime.enable');
    await send('Network.enable', { maxTotalBufferSize: 0, maxResourceBufferSize: 0 });
    await send('Runtime.addBinding', { name: '__graWebViewPost' });
    await send('Page.addScriptToEvaluateOnNewDocument', { source: SHIM });
    await send('Emulation.setFocusEmulationEnabled', { enabled: true });
    await send('Fetch.enable', { patterns: [{ urlPattern: '*', requestStage: 'Request' }] });
    this.#size = { width, height };
    this.#scale = scale > 0 ? scale : 1;
    await this.#applyMetrics();
    await send('Page.startScreencast', { format: 'png', everyNthFrame: 1 });
    if (!visible) await this.setVisible(false);
  }

  /** Runs the program's calls one after another, in the order it made them. */
  enqueue(work) {
    this.#queue = this.#queue.then(work).catch((error) => this.#journal({ event: 'error', message: String(error.message ?? error) }));
    return this.#queue;
  }

  #send(method, params) { return this.#browser.send(method, params, this.#session); }

  async #applyMetrics() {
    const width = Math.max(1, Math.round(this.#size.width / this.#scale));
    const height = Math.max(1, Math.round(this.#size.height / this.#scale));
    await this.#send('Emulation.setDeviceMetricsOverride', { width, height, deviceScaleFactor: this.#scale, mobile: false });
  }

  async setBounds(width, height) {
    if (width === this.#size.width && height === this.#size.height) return;
    this.#size = { width, height };
    await this.#applyMetrics();
    this.#requestCapture();
  }

  async setScale(scale) {
    if (!(scale > 0) || scale === this.#scale) return;
    this.#scale = scale;
    await this.#applyMetrics();
    this.#requestCapture();
  }

  // A tab in front is visible; the page is hidden by bringing a blank tab in
  // front of it, which Chromium treats as a tab in the background: the
  // document's visibilityState becomes "hidden" and no frames are made.
  async setVisible(visible) {
    this.#visible = visible;
    // Focus emulation keeps a page "visible" even behind another tab.
    await this.#send('Emulation.setFocusEmulationEnabled', { enabled: visible });
    if (visible) {
      await this.#send('Page.bringToFront');
      this.#requestCapture();
      return;
    }
    await this.#hideBehindBlank();
  }

  // A navigation brings its tab back in front; a hidden web view stays hidden.
  async #keepHidden() {
    if (!this.#visible) await this.#hideBehindBlank();
  }

  async #hideBehindBlank() {
    if (!this.#blankSession) {
      const { targetId } = await this.#browser.send('Target.createTarget', { url: 'about:blank' });
      ({ sessionId: this.#blankSession } = await this.#browser.send('Target.attachToTarget', { targetId, flatten: true }));
    }
    await this.#browser.send('Page.bringToFront', {}, this.#blankSession);
  }

  async setBackground({ a, r, g, b }) {
    await this.#send('Emulation.setDefaultBackgroundColorOverride', { color: { r, g, b, a: a / 255 } });
    this.#requestCapture();
  }

  async setSetting(name, value) {
    this.#settings[name] = value;
    if (name === 'IsScriptEnabled') await this.#send('Emulation.setScriptExecutionDisabled', { value: !value });
  }

  mapHost(host, folder) { this.#mappings.set(host.toLowerCase(), folder); }
  unmapHost(host) { this.#mappings.delete(host.toLowerCase()); }

  async navigate(uri) {
    this.#source = uri;
    const result = await this.#send('Page.navigate', { url: uri });
    if (result.errorText) this.#report(`navigation to ${uri} failed: ${result.errorText}`);
    await this.#keepHidden();
  }

  async reload() {
    await this.#send('Page.reload', {});
    await this.#keepHidden();
  }

  async postToPage(json) {
    try {
      JSON.parse(json);
    } catch {
      this.#journal({ event: 'post-refused', json });
      return;
    }
    this.stats.messagesToPage++;
    const expression = `typeof __graWebViewDeliver === 'function' && __graWebViewDeliver(JSON.parse(${JSON.stringify(json)}))`;
    const { result } = await this.#send('Runtime.evaluate', { expression, returnByValue: true });
    if (result?.value !== true) this.#journal({ event: 'post-undelivered', json });
  }

  // Focus never shows a hidden web view: the tab comes in front only when visible.
  async focus() {
    if (this.#visible) await this.#send('Page.bringToFront');
    await this.#send('Runtime.evaluate', { expression: 'window.focus()' });
  }

  async mouse(event) {
    const type = MOUSE_TYPES[event.type];
    if (!type) return;
    if (type === 'mouseWheel' && (event.modifiers & CTRL) && this.#settings.IsZoomControlEnabled === false) return;
    await this.#send('Input.dispatchMouseEvent', {
      type, x: event.x / this.#scale, y: event.y / this.#scale, modifiers: event.modifiers ?? 0,
      button: event.button ?? 'none', buttons: event.buttons ?? 0, clickCount: event.clickCount ?? 0,
      deltaX: -(event.deltaX ?? 0), deltaY: -(event.deltaY ?? 0),
    });
  }

  async key(event) {
    const modifiers = event.modifiers ?? 0;
    if (event.type === 'char') {
      const text = event.text ?? '';
      if (!text || (text.charCodeAt(0) < 0x20 && text !== '\r' && text !== '\t')) return;
      await this.#send('Input.dispatchKeyEvent', { type: 'char', text, unmodifiedText: text, modifiers });
      return;
    }
    const { key, code } = keyIdentity(event.vk);
    if ((modifiers & CTRL) && ['=', '-', '0'].includes(key) && this.#settings.IsZoomControlEnabled === false) return;
    await this.#send('Input.dispatchKeyEvent', {
      type: event.type === 'down' ? 'rawKeyDown' : 'keyUp', windowsVirtualKeyCode: event.vk,
      nativeVirtualKeyCode: event.vk, key, code, modifiers, isSystemKey: !!event.system,
    });
  }

  /** Evaluates an expression in the page for a test or the benchmark. */
  async evaluate(expression) {
    const reply = await this.#send('Runtime.evaluate', { expression, returnByValue: true, awaitPromise: true });
    if (reply.exceptionDetails) throw new Error(reply.exceptionDetails.exception?.description ?? reply.exceptionDetails.text);
    return reply.result.value;
  }

  async close() {
    await this.#browser.send('Target.closeTarget', { targetId: this.#target }).catch(() => {});
  }

  get state() {
    return {
      source: this.#source, width: this.#size.width, height: this.#size.height, scale: this.#scale,
      visible: this.#visible, settings: { ...this.#settings }, mappings: Object.fromEntries(this.#mappings), ...this.stats,
    };
  }

  // ------------------------------------------------------------ events

  #onEvent(method, params) {
    if (method === 'Fetch.requestPaused') this.#serve(params);
    else if (method === 'Page.screencastFrame') this.#onScreencastFrame(params);
    else if (method === 'Runtime.bindingCalled' && params.name === '__graWebViewPost') this.#onPageMessage(params.payload);
    else if (method === 'Runtime.exceptionThrown') this.#onException(params.exceptionDetails);
    else if (method === 'Runtime.consoleAPICalled') this.#onConsole(params);
    else if (method === 'Network.requestWillBeSent') this.#requests.set(params.requestId, params);
    else if (method === 'Network.responseReceived') this.#onResponse(params);
    else if (method === 'Network.loadingFailed') this.#onLoadFailed(params);
    else if (method === 'Network.loadingFinished') this.#requests.delete(params.requestId);
    else if (method === 'Page.frameNavigated' && !params.frame.parentId) {
      this.#source = params.frame.url;
      this.#journal({ event: 'navigated', uri: params.frame.url });
      this.#keepHidden().catch(() => {});
    } else if (method === 'Page.javascriptDialogOpening') {
      this.#journal({ event: 'dialog', kind: params.type, message: params.message });
      this.#send('Page.handleJavaScriptDialog', { accept: this.#settings.AreDefaultScriptDialogsEnabled !== false }).catch(() => {});
    } else if (method === 'Inspector.targetCrashed') {
      this.#report('the page\'s renderer crashed');
    }
  }

  #report(text) {
    this.stats.pageErrors.push(text);
    this.#journal({ event: 'page-error', message: text });
    this.#say(`page: error: ${text}`);
  }

  // ------------------------------------------------------------ what the page says

  // A place in the page as a person finds it: the file relative to the page
  // folder (or the whole address elsewhere), line and column counted from 1.
  #where(url, line, column) {
    if (!url) return '';
    return `${this.#fileName(url)}:${(line ?? 0) + 1}:${(column ?? 0) + 1} `;
  }

  #fileName(url) {
    try {
      const parsed = new URL(url);
      if (this.#mappings.has(parsed.hostname)) return decodeURIComponent(parsed.pathname).replace(/^\//, '');
    } catch {
      // an address that is not a URL is named as it is
    }
    return url;
  }

  #whereInStack(stackTrace) {
    const frame = stackTrace?.callFrames?.find((f) => f.url);
    return frame ? this.#where(frame.url, frame.lineNumber, frame.columnNumber) : '';
  }

  #onException(details) {
    const exception = details.exception;
    let text = exception?.description?.split('\n')[0]
      ?? (exception && 'value' in exception ? `${JSON.stringify(exception.value)}` : details.text);
    if (/in promise/.test(details.text)) text = `unhandled rejection: ${text}`;
    const where = details.url ? this.#where(details.url, details.lineNumber, details.columnNumber)
      : this.#whereInStack(details.stackTrace);
    this.#report(`${where}${text}`);
  }

  #onConsole({ type, args, stackTrace }) {
    const level = { warning: 'warn', assert: 'error', trace: 'log', dir: 'log', table: 'log' }[type] ?? type;
    const text = (args ?? []).map(describeValue).join(' ');
    const line = `${this.#whereInStack(stackTrace)}${text}`;
    this.#journal({ event: 'console', level, message: line });
    this.#say(`page: ${level}: ${line}`);
  }

  // The page's own loads that fail (a missing script, a 404) are said with the
  // place in the page that asked for them; the browser's own asks (the icon) are not.
  #onResponse({ requestId, response, type }) {
    if (response.status < 400) return;
    this.#failedLoad(requestId, type, `${response.status}${response.statusText ? ` ${response.statusText}` : ''}`);
  }

  #onLoadFailed({ requestId, type, errorText, canceled }) {
    if (!canceled) this.#failedLoad(requestId, type, errorText);
  }

  #failedLoad(requestId, type, why) {
    const request = this.#requests.get(requestId);
    this.#requests.delete(requestId);
    if (!request) return;
    const initiator = request.initiator ?? {};
    if (initiator.type === 'other' && type !== 'Document') return;
    const where = initiator.url ? this.#where(initiator.url, initiator.lineNumber, initiator.columnNumber)
      : this.#whereInStack(initiator.stack);
    this.#report(`${where}${this.#fileName(request.request.url)} could not be loaded (${why})`);
  }

  #onPageMessage(json) {
    if (this.#settings.IsWebMessageEnabled === false) return;
    this.stats.messagesFromPage++;
    this.#toRuntime({ op: 'message', json, source: this.#source });
  }

  // Only the mapped host names are served, each from its own folder and
  // nothing outside it; every other address goes to the network as usual.
  async #serve({ requestId, request }) {
    let url;
    try {
      url = new URL(request.url);
    } catch {
      url = null;
    }
    const folder = url && (url.protocol === 'https:' || url.protocol === 'http:') ? this.#mappings.get(url.hostname) : undefined;
    if (folder === undefined) {
      this.#browser.send('Fetch.continueRequest', { requestId }, this.#session).catch(() => {});
      return;
    }
    const root = path.resolve(folder);
    let file = null;
    try {
      file = path.resolve(root, '.' + decodeURIComponent(url.pathname));
    } catch {
      file = null;  // a malformed escape names no file
    }
    const inside = file !== null && (file === root || file.startsWith(root + path.sep));
    let body = null;
    if (inside) {
      try {
        body = await fs.promises.readFile(file);
      } catch {
        body = null;
      }
    }
    const found = body !== null;
    this.#journal({ event: 'serve', url: request.url, file: inside ? file : null, status: found ? 200 : 404 });
    const contentType = (found && CONTENT_TYPES[path.extname(file).toLowerCase()]) || 'application/octet-stream';
    await this.#browser.send('Fetch.fulfillRequest', {
      requestId, responseCode: found ? 200 : 404,
      responseHeaders: [{ name: 'Content-Type', value: found ? contentType : 'text/plain' }, { name: 'Cache-Control', value: 'no-cache' }],
      body: (found ? body : Buffer.from('Not found')).toString('base64'),
    }, this.#session).catch(() => {});
  }

  // ------------------------------------------------------------ frames

  // The screencast says when the page drew. Its image is in page pixels; when
  // that is also the device size (scale 1) it is used as it is, otherwise a
  // screenshot in device pixels is taken instead.
  #onScreencastFrame({ data, sessionId }) {
    this.#send('Page.screencastFrameAck', { sessionId }).catch(() => {});
    const png = Buffer.from(data, 'base64');
    if (png.readUInt32BE(16) === this.#size.width && png.readUInt32BE(20) === this.#size.height) {
      this.#takeFrame(png);
    } else {
      this.#requestCapture();
    }
  }

  async #requestCapture() {
    if (!this.#visible) return;
    if (this.#capturing) {
      this.#captureAgain = true;
      return;
    }
    this.#capturing = true;
    try {
      let lateOnes = 0;
      do {
        this.#captureAgain = false;
        const shot = await this.#captureOnce();
        if (shot) this.#takeFrame(shot);
        // Asked again: a tab just brought in front may leave the first request unanswered.
        else if (++lateOnes < CAPTURE_TRIES) this.#captureAgain = true;
      } while (this.#captureAgain && this.#visible);
    } catch (error) {
      this.#journal({ event: 'capture-failed', message: String(error.message ?? error) });
    } finally {
      this.#capturing = false;
    }
  }

  // A screenshot asked for just as the tab comes in front can stay unanswered;
  // after CAPTURE_WAIT_MS it counts as not taken.
  async #captureOnce() {
    let timer;
    const late = new Promise((resolve) => { timer = setTimeout(() => resolve(null), CAPTURE_WAIT_MS); });
    const shot = this.#send('Page.captureScreenshot', { format: 'png', optimizeForSpeed: true })
      .then(({ data }) => Buffer.from(data, 'base64'));
    shot.catch(() => {});  // a late answer's failure is nobody's to hear
    try {
      const png = await Promise.race([shot, late]);
      if (!png) this.#journal({ event: 'capture-late' });
      return png;
    } finally {
      clearTimeout(timer);
    }
  }

  #takeFrame(png) {
    let frame;
    try {
      frame = decodePng(png);
    } catch (error) {
      this.#journal({ event: 'frame-undecodable', message: error.message });
      return;
    }
    this.#next = frame;
    for (const waiter of this.#frameWaiters) waiter(frame);
    this.#sendNextFrame();
  }

  // At most one frame travels at a time; a newer one replaces a waiting one,
  // so a slow window never falls behind the page.
  #sendNextFrame() {
    if (this.#waitingFor !== 0 || !this.#next) return;
    const frame = this.#next;
    this.#next = null;
    const { width, height, pixels } = frame;
    const stride = width * 4;
    let top = 0;
    let bottom = height;
    const same = this.#sent && this.#sent.width === width && this.#sent.height === height;
    if (same) {
      const old = this.#sent.pixels;
      while (top < height && pixels.compare(old, top * stride, (top + 1) * stride, top * stride, (top + 1) * stride) === 0) top++;
      if (top === height) return;  // nothing changed
      while (bottom > top && pixels.compare(old, (bottom - 1) * stride, bottom * stride, (bottom - 1) * stride, bottom * stride) === 0) bottom--;
    }
    this.#sent = frame;
    const seq = ++this.#seq;
    this.#waitingFor = seq;
    frame.seq = seq;
    const rows = pixels.subarray(top * stride, bottom * stride);
    this.stats.framesSent++;
    this.stats.bytesSent += rows.length;
    this.#toRuntime({ op: 'frame', seq, width, height, top, rows: bottom - top, bytes: rows.length }, rows);
  }

  onPainted(seq) {
    if (seq !== this.#waitingFor) return;
    this.#waitingFor = 0;
    this.stats.framesPainted++;
    this.#paintWaiters.forEach((waiter) => waiter(seq));
    this.#sendNextFrame();
  }

  /**
   * The benchmark's figure: for each of count changes, the time from the DOM
   * change in the page to the runtime's word that the window shows it.
   */
  async measureFrameLatency(count) {
    const colours = [[255, 32, 160], [32, 200, 255]];
    await this.evaluate(`(() => { let box = document.getElementById('__graLatencyBox');
      if (!box) { box = document.createElement('div'); box.id = '__graLatencyBox';
        box.style.cssText = 'position:fixed;left:0;top:0;width:24px;height:24px;z-index:2147483647';
        document.documentElement.append(box); } return true; })()`);
    const latencies = [];
    for (let i = 0; i < count; i++) {
      const [r, g, b] = colours[i % 2];
      const painted = this.#awaitColourPainted(r, g, b, 5000);
      const start = performance.now();
      await this.#send('Runtime.evaluate', { expression: `document.getElementById('__graLatencyBox').style.background='rgb(${r},${g},${b})'` });
      if (await painted) latencies.push(performance.now() - start);
      else latencies.push(null);
    }
    return latencies;
  }

  // Resolves true once a frame whose pixel at the box's centre has the colour
  // has been painted by the runtime, false after the time limit.
  #awaitColourPainted(r, g, b, limitMs) {
    return new Promise((resolve) => {
      const cx = Math.floor(12 * this.#scale);
      const framesWithColour = new WeakSet();
      const onFrame = (frame) => {
        const at = (cx * frame.width + cx) * 4;
        if (frame.pixels[at] === b && frame.pixels[at + 1] === g && frame.pixels[at + 2] === r) framesWithColour.add(frame);
      };
      const onPaint = () => {
        if (this.#sent && framesWithColour.has(this.#sent)) finish(true);
      };
      const finish = (result) => {
        clearTimeout(timer);
        this.#frameWaiters.delete(onFrame);
        this.#paintWaiters.delete(onPaint);
        resolve(result);
      };
      const timer = setTimeout(() => finish(false), limitMs);
      this.#frameWaiters.add(onFrame);
      this.#paintWaiters.add(onPaint);
    });
  }
}
