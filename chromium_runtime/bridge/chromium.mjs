// Starts Debian's Chromium headless and speaks the DevTools protocol with it
// over the two pipes of --remote-debugging-pipe (file descriptors 3 and 4,
// messages ended by a zero byte). No port is opened and nothing is downloaded.
import { spawn } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';

// Without the background-networking switches Chromium keeps trying to reach
// Google's services, which a closed machine refuses many times a second; a
// fixed sRGB colour profile keeps page colours exact in the host window.
const BASE_SWITCHES = [
  '--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
  '--no-default-browser-check', '--disable-background-networking', '--disable-component-update',
  '--disable-sync', '--disable-extensions', '--hide-scrollbars', '--mute-audio',
  '--force-color-profile=srgb', '--remote-debugging-pipe',
];

export class Chromium {
  #process;
  #toBrowser;
  #nextId = 0;
  #pending = new Map();
  #listeners = new Set();
  #profile;
  exited = null;

  /** Launches the browser; resolves once it answers Browser.getVersion, rejects if it cannot start. */
  static async launch({ executable, extraSwitches = [], onExit }) {
    const browser = new Chromium();
    await browser.#start(executable, extraSwitches, onExit);
    return browser;
  }

  get pid() { return this.#process?.pid ?? 0; }

  async #start(executable, extraSwitches, onExit) {
    this.#profile = fs.mkdtempSync(path.join(os.tmpdir(), 'gra-chromium-'));
    const args = [...BASE_SWITCHES, ...extraSwitches, `--user-data-dir=${this.#profile}`, 'about:blank'];
    const child = spawn(executable, args, { stdio: ['ignore', 'ignore', 'pipe', 'pipe', 'pipe'] });
    this.#process = child;
    child.stderr.on('data', () => {});  // Chromium's own chatter (D-Bus, fonts) is not ours to show
    this.#toBrowser = child.stdio[3];
    this.#toBrowser.on('error', () => {});
    let buffered = Buffer.alloc(0);
    child.stdio[4].on('data', (data) => {
      buffered = Buffer.concat([buffered, data]);
      for (let end = buffered.indexOf(0); end >= 0; end = buffered.indexOf(0)) {
        const message = JSON.parse(buffered.subarray(0, end).toString('utf8'));
        buffered = buffered.subarray(end + 1);
        this.#receive(message);
      }
    });
    const started = new Promise((resolve, reject) => {
      child.once('error', reject);
      child.once('exit', (code, signal) => reject(new Error(`chromium ended at start (code ${code}, signal ${signal})`)));
      this.send('Browser.getVersion').then(resolve, reject);
    });
    child.once('exit', (code, signal) => {
      this.exited = { code, signal };
      for (const reply of this.#pending.values()) reply.reject(new Error('chromium has ended'));
      this.#pending.clear();
      fs.rm(this.#profile, { recursive: true, force: true }, () => {});
      onExit?.(code, signal);
    });
    const timeout = new Promise((_, reject) => setTimeout(() => reject(new Error('chromium did not answer within 30 s')), 30000).unref());
    this.version = (await Promise.race([started, timeout])).product;
  }

  #receive(message) {
    if (message.id !== undefined && this.#pending.has(message.id)) {
      const reply = this.#pending.get(message.id);
      this.#pending.delete(message.id);
      if (message.error) reply.reject(new Error(`${reply.method}: ${message.error.message}`));
      else reply.resolve(message.result);
      return;
    }
    // A page's odd event must not take the bridge down with it.
    for (const listener of this.#listeners) {
      try {
        listener(message);
      } catch (error) {
        console.error(`event ${message.method} not handled: ${error.message}`);
      }
    }
  }

  /** Sends one protocol command (to a page when sessionId is given) and resolves with its result. */
  send(method, params = {}, sessionId = undefined) {
    if (this.exited) return Promise.reject(new Error('chromium has ended'));
    const id = ++this.#nextId;
    return new Promise((resolve, reject) => {
      this.#pending.set(id, { resolve, reject, method });
      this.#toBrowser.write(JSON.stringify({ id, method, params, sessionId }) + '\0');
    });
  }

  /** Calls listener(method, params) for every event of the given session. */
  onEvent(sessionId, listener) {
    const forward = (message) => { if (message.method && message.sessionId === sessionId) listener(message.method, message.params); };
    this.#listeners.add(forward);
    return () => this.#listeners.delete(forward);
  }

  close() {
    if (this.#process && !this.exited) this.#process.kill('SIGTERM');
  }
}
