#!/usr/bin/env node
// The Linux side of the Chromium-backed WebView2 runtime. It listens on one
// loopback TCP port; the runtime library that the program loads under Wine
// connects to it, and each such connection is one WebView2 environment with
// its own headless Chromium and one web view. Tests and the benchmark connect
// to the same port as "control" clients to look into the page.
//
//   node bridge.mjs [--port N] [--journal FILE] [--chromium PATH] [--spare yes|always]
//
// With --spare yes one browser is started ahead, before any program asks (a
// line "spare browser ready" says when it is up), and the first environment
// that asks for no extra browser switches takes it: Chromium's cold start
// takes seconds, tens of them on a busy machine, where the installed runtime
// of a player's machine starts in about one, and the program's cover gives
// the page 10 s. With --spare always the next spare is started once the page
// of the environment that took one has drawn its first frame (or its program
// has gone), for a caller that starts the program again and again (the
// self-check): not at once, where it would slow down that very page.
//
// The first line on standard output is "bridge listening on 127.0.0.1:<port>";
// later lines say what a person watching should know (browser started or
// ended, page errors). The journal, when asked for, gets one JSON object per
// line for everything the runtime asked of the browser.
//
// Wire format, both ways: one JSON object per line; an object with a "bytes"
// field is followed by exactly that many raw bytes (the frames' pixels).
import fs from 'node:fs';
import net from 'node:net';
import { Chromium } from './chromium.mjs';
import { Page } from './page.mjs';

const options = { port: 0, journal: '', chromium: process.env.GRA_CHROMIUM_EXECUTABLE || '/usr/bin/chromium', spare: 'no' };
for (let i = 2; i < process.argv.length; i++) {
  const name = process.argv[i].replace(/^--/, '');
  if (!(name in options) || i + 1 >= process.argv.length) {
    console.error(`usage: bridge.mjs [--port N] [--journal FILE] [--chromium PATH] [--spare yes|always] (not understood: ${process.argv[i]})`);
    process.exit(2);
  }
  options[name] = name === 'port' ? Number(process.argv[++i]) : process.argv[++i];
}

const say = (text) => console.log(text);
const started = performance.now();
function journal(entry) {
  if (!options.journal) return;
  fs.appendFileSync(options.journal, JSON.stringify({ t: Math.round(performance.now() - started), ...entry }) + '\n');
}

// HRESULTs the environment creation answers with, as a real runtime would.
const FILE_NOT_FOUND = 0x80070002;
const FAILED = 0x80004005;

const pages = new Set();
const browsers = new Set();

// The browser started ahead: its start (a browser, or null if it could not
// start) and where its end is to be told once an environment has it.
let spare = null;
// --spare always: a spare was taken and the next one waits for that page's first frame.
let spareOwed = false;

function startOwedSpare() {
  if (!spareOwed) return;
  spareOwed = false;
  startSpare();
}

function startSpare() {
  const held = { tellExit: null };
  held.ready = Chromium.launch({ executable: options.chromium, onExit: (code, signal) => held.tellExit?.(code, signal) })
    .then((browser) => {
      browsers.add(browser);
      say('spare browser ready');
      return browser;
    }, (error) => {
      say(`spare browser could not start: ${error.message}`);
      return null;
    });
  spare = held;
}

/** The spare browser when it fits (no extra switches) and is up, else a new one. */
async function launchBrowser(extraSwitches, onExit) {
  if (spare && extraSwitches.length === 0) {
    const held = spare;
    spare = null;
    spareOwed = options.spare === 'always';
    const browser = await held.ready;
    if (browser && !browser.exited) {
      held.tellExit = onExit;
      return browser;
    }
  }
  return Chromium.launch({ executable: options.chromium, extraSwitches, onExit });
}

/** Splits a byte stream into messages: JSON lines, each followed by its "bytes" if it has any. */
function readMessages(socket, onMessage) {
  let buffered = Buffer.alloc(0);
  let waiting = null;
  socket.on('data', (data) => {
    buffered = buffered.length ? Buffer.concat([buffered, data]) : data;
    for (;;) {
      if (waiting) {
        if (buffered.length < waiting.bytes) return;
        const body = buffered.subarray(0, waiting.bytes);
        buffered = buffered.subarray(waiting.bytes);
        const message = waiting;
        waiting = null;
        onMessage(message, body);
        continue;
      }
      const end = buffered.indexOf(10);
      if (end < 0) return;
      const line = buffered.subarray(0, end).toString('utf8');
      buffered = buffered.subarray(end + 1);
      if (!line.trim()) continue;
      let message;
      try {
        message = JSON.parse(line);
      } catch {
        journal({ event: 'bad-line', line });
        continue;
      }
      if (message.bytes > 0) waiting = message;
      else onMessage(message, null);
    }
  });
}

function writer(socket) {
  return (message, body = null) => {
    if (socket.destroyed) return;
    socket.write(JSON.stringify(message) + '\n');
    if (body) socket.write(body);
  };
}

// ------------------------------------------------------------ runtime

async function serveRuntime(socket, first) {
  const send = writer(socket);
  let browser = null;
  let page = null;
  // Calls that arrive while the browser starts wait for it, in their order.
  let browserReady;
  const launched = new Promise((resolve) => { browserReady = resolve; });
  readMessages(socket, async (message) => {
    if (await launched) onMessage(message);
  });
  journal({ event: 'environment', userDataFolder: first.userDataFolder, arguments: first.arguments, runtimeType: first.runtimeType });
  const extraSwitches = (first.arguments || '').split(/\s+/).filter(Boolean);
  try {
    browser = await launchBrowser(extraSwitches, (code, signal) => {
      say(`browser ended (code ${code}, signal ${signal}); the program keeps running without a page`);
      journal({ event: 'browser-ended', code, signal });
      send({ op: 'browser-ended' });
    });
  } catch (error) {
    const hresult = error.code === 'ENOENT' ? FILE_NOT_FOUND : FAILED;
    say(`browser could not start: ${error.message}`);
    journal({ event: 'environment-failed', message: error.message, hresult });
    send({ op: 'environment', ok: false, hresult });
    socket.end();
    browserReady(false);
    return;
  }
  browsers.add(browser);
  say(`browser started (pid ${browser.pid}, ${browser.version})`);
  journal({ event: 'browser-started', pid: browser.pid, version: browser.version });
  send({ op: 'environment', ok: true, pid: browser.pid, version: browser.version.replace(/^[^/]*\//, '') });
  browserReady(true);

  const onMessage = (message) => {
    if (message.op !== 'painted' && !(message.op === 'mouse' && message.type === 'move')) journal({ event: 'call', ...message });
    switch (message.op) {
      case 'controller':
        openPage(message);
        break;
      case 'painted':
        page?.onPainted(message.seq);
        startOwedSpare();
        break;
      default:
        if (page) page.enqueue(() => runCall(page, message));
    }
  };

  async function openPage(message) {
    if (page) {
      send({ op: 'controller', ok: false, hresult: FAILED });
      return;
    }
    const candidate = new Page({ browser, journal, toRuntime: send, say });
    try {
      await candidate.open(message);
      page = candidate;
      pages.add(page);
      send({ op: 'controller', ok: true });
    } catch (error) {
      journal({ event: 'controller-failed', message: error.message });
      send({ op: 'controller', ok: false, hresult: FAILED });
    }
  }

  socket.on('close', () => {
    say('runtime disconnected; closing its browser');
    journal({ event: 'runtime-disconnected' });
    startOwedSpare();
    if (page) pages.delete(page);
    browsers.delete(browser);
    browser.close();
  });
}

async function runCall(page, call) {
  switch (call.op) {
    case 'bounds': return page.setBounds(call.width, call.height);
    case 'visible': return page.setVisible(!!call.on);
    case 'background': return page.setBackground(call);
    case 'scale': return page.setScale(call.value);
    case 'setting': return page.setSetting(call.name, !!call.value);
    case 'map': return page.mapHost(call.host, call.folder);
    case 'unmap': return page.unmapHost(call.host);
    case 'navigate': return page.navigate(call.uri);
    case 'reload': return page.reload();
    case 'post': return page.postToPage(call.json);
    case 'focus': return page.focus();
    case 'mouse': return page.mouse(call);
    case 'key': return page.key(call);
    case 'close': return page.close();
    default: journal({ event: 'unknown-call', op: call.op });
  }
}

// ------------------------------------------------------------ control

function serveControl(socket) {
  const send = writer(socket);
  readMessages(socket, async (message) => {
    const page = [...pages].at(-1);
    const reply = (fields) => send({ id: message.id, ...fields });
    try {
      if (message.op === 'state') return reply({ ok: true, value: page ? page.state : null });
      if (!page) return reply({ ok: false, error: 'no page yet' });
      if (message.op === 'eval') return reply({ ok: true, value: await page.evaluate(message.expression) });
      if (message.op === 'measure-frames') return reply({ ok: true, value: await page.measureFrameLatency(message.count ?? 100) });
      if (message.op === 'type') {
        // The characters reach the page as the web view's window hands on WM_CHAR while it has the keyboard.
        for (const text of String(message.text ?? '')) await page.key({ type: 'char', text });
        return reply({ ok: true, value: true });
      }
      return reply({ ok: false, error: `unknown op ${message.op}` });
    } catch (error) {
      return reply({ ok: false, error: String(error.message ?? error) });
    }
  });
}

// ------------------------------------------------------------ listening

// Whatever goes wrong in one page's work is said, and the bridge carries on.
process.on('unhandledRejection', (error) => console.error(`not handled: ${error?.message ?? error}`));

const server = net.createServer((socket) => {
  socket.setNoDelay(true);
  let head = Buffer.alloc(0);
  const onFirst = (data) => {
    head = Buffer.concat([head, data]);
    const end = head.indexOf(10);
    if (end < 0) {
      if (head.length > 65536) socket.destroy();  // no client says this much before its first line
      return;
    }
    socket.off('data', onFirst);
    let hello;
    try {
      hello = JSON.parse(head.subarray(0, end).toString('utf8'));
    } catch {
      socket.destroy();
      return;
    }
    const rest = head.subarray(end + 1);
    if (hello.op === 'environment') {
      say('runtime connected');
      serveRuntime(socket, hello);
    } else if (hello.op === 'control') {
      serveControl(socket);
    } else {
      socket.destroy();
      return;
    }
    if (rest.length) socket.emit('data', rest);
  };
  socket.on('data', onFirst);
  socket.on('error', () => {});
});
server.listen(options.port, '127.0.0.1', () => {
  say(`bridge listening on 127.0.0.1:${server.address().port}`);
  if (options.spare === 'yes' || options.spare === 'always') startSpare();
});
for (const signal of ['SIGTERM', 'SIGINT']) {
  process.on(signal, () => {
    for (const browser of browsers) browser.close();
    process.exit(0);
  });
}
