// Browser tests of the library and the default page in headless Chromium (Debian's package,
// driven by playwright-core; nothing downloads a browser). web/ is served on 127.0.0.1 and a
// stand-in for window.chrome.webview records what the page posts and delivers the host's messages.
import { test, describe, before, after } from 'node:test';
import assert from 'node:assert/strict';
import { mkdir } from 'node:fs/promises';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { chromium } from 'playwright-core';
import { serve } from '../../web/serve.mjs';
import { installWebviewShim } from './webview-shim.mjs';
import { jsonField, parseRects, hostMessages } from './host-rules.mjs';
import { rectOf } from '../../web/gra-overlay.js';

const here = path.dirname(fileURLToPath(import.meta.url));
const screenshots = process.env.GRA_SCREENSHOT_DIR || path.join(here, '../../build/screenshots');
const CHROMIUM = process.env.GRA_CHROMIUM || '/usr/bin/chromium';
const VIEWPORT = { width: 1280, height: 720 };

let browser;
let server;

before(async () => {
  server = await serve({ '/': path.join(here, '../../web'), '/test/': path.join(here, 'fixtures') });
  browser = await chromium.launch({
    executablePath: CHROMIUM,
    args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
      '--disable-background-networking', '--disable-component-update', '--disable-sync'],
  });
});

after(async () => {
  await browser?.close();
  await server?.close();
});

// ---- helpers --------------------------------------------------------------------------------

async function open(urlPath, { shim = true, backdrop = false, context = null } = {}) {
  const ownContext = context ?? await browser.newContext({ viewport: VIEWPORT });
  const page = await ownContext.newPage();
  const errors = [];
  const consoleLines = [];
  page.on('pageerror', (error) => errors.push(String(error)));
  page.on('console', (message) => {
    consoleLines.push(message.text());
    if (message.type() === 'error') errors.push(message.text());
  });
  if (shim) await page.addInitScript(installWebviewShim, { backdrop });
  await page.goto(server.url + urlPath);
  const sent = () => page.evaluate(() => window.__gra.sent);
  const view = {
    page,
    context: ownContext,
    errors,
    consoleLines,
    sent,
    deliver: (json) => page.evaluate((text) => window.__gra.deliver(text), json),
    ofType: async (type) => (await sent()).filter((m) => jsonField(m.json, 'type') === type),
    close: () => ownContext.close(),
  };
  return view;
}

async function eventually(probe, what, timeout = 5000) {
  const start = Date.now();
  for (;;) {
    const value = await probe();
    if (value) return value;
    if (Date.now() - start > timeout) assert.fail(`waited ${timeout} ms for ${what}`);
    await new Promise((resolve) => setTimeout(resolve, 25));
  }
}

const rectsOf = (message) => parseRects(jsonField(message.json, 'rects'));

async function boxRect(page, selector) {
  const box = await page.locator(selector).boundingBox();
  return rectOf({ left: box.x, top: box.y, right: box.x + box.width, bottom: box.y + box.height });
}

// The region as the host would hold it after the last message, once it equals `expected`.
async function regionBecomes(view, expected, what) {
  return eventually(async () => {
    const last = (await view.ofType('region')).at(-1);
    return last && JSON.stringify(rectsOf(last)) === JSON.stringify(expected) ? last : null;
  }, what);
}

async function checkRegionMessages(view) {
  const regions = await view.ofType('region');
  const frames = regions.map((m) => m.frame);
  assert.equal(new Set(frames).size, frames.length, `at most one region message per frame: ${frames}`);
  for (let i = 1; i < regions.length; i += 1) {
    assert.notEqual(regions[i].json, regions[i - 1].json, 'a region message only when the rectangles changed');
  }
  return regions;
}

// Answers the page's two file requests as the host would when neither file exists yet.
async function answerFirstLoads(view, files = {}) {
  for (const name of ['gra_pad.json', 'gra_overlay.json']) {
    await eventually(async () => (await view.ofType('load')).some((m) => jsonField(m.json, 'file') === name), `load ${name}`);
    const text = files[name];
    await view.deliver(hostMessages.file(name, text !== undefined, text ?? ''));
  }
}

// ---- the library's protocol, on the default page ---------------------------------------------

describe('default page', () => {
  test('posts "ready" once on load, then its region, and takes the cover down after a frame', async () => {
    const view = await open('/index.html');
    const cover = await eventually(async () => (await view.ofType('cover'))[0], 'the cover message');
    await view.page.waitForTimeout(300);
    const sent = await view.sent();
    const types = sent.map((m) => jsonField(m.json, 'type'));
    assert.equal(sent[0].json, '{"type":"ready"}');
    assert.equal(types.filter((t) => t === 'ready').length, 1);
    assert.equal(cover.json, '{"type":"cover","on":false}');
    assert.equal(types.filter((t) => t === 'cover').length, 1);
    assert.ok(cover.frame >= 1, 'the cover comes down after the first frame was drawn');
    assert.ok(types.indexOf('region') < types.indexOf('cover'), 'the region is in place before the cover comes down');
    assert.deepEqual(rectsOf((await view.ofType('region'))[0]), [], 'nothing is shown before "show"');
    assert.deepEqual(view.errors, []);
    await view.close();
  });

  test('show with a pad holding quotation marks, a backslash and a line break displays it exactly', async () => {
    const view = await open('/index.html');
    await view.deliver(hostMessages.host());
    const pad = 'He said "run" \\ now\nsecond line: é 😀';
    await view.deliver(hostMessages.show(pad));
    assert.equal(await view.page.locator('#pad-text').textContent(), pad);
    assert.equal(await view.page.locator('#pad-text').evaluate((e) => e.innerText), pad);
    assert.ok(await view.page.locator('#pad').isVisible());
    assert.ok(await view.page.locator('#panel').isVisible());
    const modal = await view.ofType('modal');
    assert.deepEqual(modal.map((m) => m.json), ['{"type":"modal","on":true}']);
    assert.deepEqual((await view.ofType('through')).map((m) => m.json), ['{"type":"through","on":true}']);

    // the panel is drawn: once its entrance is over the region is exactly its box
    await view.page.waitForTimeout(400);
    await regionBecomes(view, [await boxRect(view.page, '#panel')], 'the panel in the region');

    await view.deliver(hostMessages.show());
    assert.equal(await view.page.locator('#pad').isVisible(), false, 'a show without pad clears it');
    await checkRegionMessages(view);
    assert.deepEqual(view.errors, []);
    await view.close();
  });

  test('notes appear in order, as cards while closed, and wait while the game is away', async () => {
    const view = await open('/index.html');
    // cards that stay long enough for a slow machine
    await answerFirstLoads(view, { 'gra_overlay.json': '{"noteSeconds":30}' });
    await view.deliver(hostMessages.note('"The merchant left a parcel."'));
    await view.deliver(hostMessages.note('{"title":"Quest","text":"Find the map"}'));
    await view.deliver(hostMessages.note('42'));
    const texts = (selector) => view.page.locator(selector).evaluateAll((nodes) => nodes.map((n) => n.textContent));
    assert.deepEqual(await texts('#toasts .toast .note-text'), ['The merchant left a parcel.', 'Find the map', '42']);
    assert.deepEqual(await texts('#notes .note .note-text'), ['The merchant left a parcel.', 'Find the map', '42']);
    assert.deepEqual(await texts('#notes .note-title'), ['Quest']);

    const cards = await view.page.locator('#toasts .toast').count();
    const expected = [];
    for (let i = 1; i <= cards; i += 1) expected.push(await boxRect(view.page, `#toasts .toast:nth-child(${i})`));
    await view.page.waitForTimeout(400);
    for (let i = 0; i < cards; i += 1) expected[i] = await boxRect(view.page, `#toasts .toast:nth-child(${i + 1})`);
    await regionBecomes(view, expected, 'the three note cards in the region');

    const timerStates = () => view.page.locator('.toast-timer').evaluateAll((nodes) => nodes.map((n) => n.getAnimations()[0].playState));
    assert.deepEqual(await timerStates(), ['running', 'running', 'running']);
    await view.deliver(hostMessages.away());
    assert.deepEqual(await timerStates(), ['paused', 'paused', 'paused']);
    await view.deliver(hostMessages.back());
    assert.deepEqual(await timerStates(), ['running', 'running', 'running']);

    // when the last card's time is up the overlay hides itself
    await view.page.evaluate(() => document.querySelectorAll('.toast-timer').forEach((n) => n.getAnimations()[0].finish()));
    await eventually(async () => (await view.ofType('hide')).length === 1, 'hide after the last card');
    await regionBecomes(view, [], 'an empty region');

    // opening the panel takes the cards away: their notes are in its list
    await view.deliver(hostMessages.note('"one"'));
    await view.deliver(hostMessages.note('"two"'));
    assert.equal(await view.page.locator('#toasts .toast').count(), 2);
    await view.deliver(hostMessages.show());
    assert.equal(await view.page.locator('#toasts .toast').count(), 0);
    assert.deepEqual(await texts('#notes .note-text'), ['The merchant left a parcel.', 'Find the map', '42', 'one', 'two']);
    await view.page.waitForTimeout(400);
    await regionBecomes(view, [await boxRect(view.page, '#panel')], 'the panel alone in the region');
    await checkRegionMessages(view);
    assert.deepEqual(view.errors, []);
    await view.close();
  });

  test('close leads to "hide", after the panel has gone', async () => {
    const view = await open('/index.html');
    await view.deliver(hostMessages.show('x'));
    await view.deliver(hostMessages.close());
    await eventually(async () => (await view.ofType('hide')).length === 1, 'the hide message');
    const tail = (await view.sent()).map((m) => m.json).filter((j) => /modal|hide/.test(j));
    assert.deepEqual(tail, ['{"type":"modal","on":true}', '{"type":"modal","on":false}', '{"type":"hide"}']);
    assert.equal(await view.page.locator('#panel').isVisible(), false);
    await regionBecomes(view, [], 'an empty region');

    // a close while nothing is open is answered at once, also while away
    await view.deliver(hostMessages.away());
    await view.deliver(hostMessages.close());
    assert.equal((await view.ofType('hide')).length, 2);
    assert.deepEqual(view.errors, []);
    await view.close();
  });

  test('the notepad and the settings round-trip through load/"file" and save/"saved"', async () => {
    const context = await browser.newContext({ viewport: VIEWPORT });
    const first = await open('/index.html', { context });
    await answerFirstLoads(first);
    await first.deliver(hostMessages.show());
    const text = 'Gate code "4-1-7" \\ ask Aldric\nsecond line é 😀\ttab';
    await first.page.fill('#notepad', text);
    const save = await eventually(async () => (await first.ofType('save'))[0], 'the notepad save');
    assert.equal(jsonField(save.json, 'file'), 'gra_pad.json');
    const padFile = jsonField(save.json, 'text');
    assert.deepEqual(JSON.parse(padFile), { text });
    await first.deliver(hostMessages.saved('gra_pad.json', true));
    await eventually(async () => (await first.page.locator('#pad-status').textContent()) === 'saved', 'the saved status');

    await first.page.locator('.settings summary').click();
    await first.page.check('input[name=side][value=left]');
    const saves = await eventually(async () => {
      const all = await first.ofType('save');
      return all.length === 2 ? all : null;
    }, 'the settings save');
    assert.equal(jsonField(saves[1].json, 'file'), 'gra_overlay.json');
    const settingsFile = jsonField(saves[1].json, 'text');
    assert.equal(JSON.parse(settingsFile).side, 'left');
    await first.deliver(hostMessages.saved('gra_overlay.json', true));
    assert.deepEqual(first.errors, []);
    await first.page.close();

    // a new page gets both files back from the host and shows what was kept
    const second = await open('/index.html', { context });
    await answerFirstLoads(second, { 'gra_pad.json': padFile, 'gra_overlay.json': settingsFile });
    await second.deliver(hostMessages.show());
    await eventually(async () => (await second.page.inputValue('#notepad')) === text, 'the notepad text');
    assert.equal(await second.page.evaluate(() => document.documentElement.dataset.side), 'left');
    assert.equal(await second.page.isEnabled('#notepad'), true);
    assert.deepEqual(second.errors, []);

    // a refused save is shown, not hidden
    await second.page.fill('#notepad', 'more');
    await eventually(async () => (await second.ofType('save')).length === 1, 'the second save');
    await second.deliver(hostMessages.saved('gra_pad.json', false));
    await eventually(async () => (await second.page.locator('#pad-status').textContent()) === 'not saved', 'the failure');
    await context.close();
  });

  test('a bad game command fails in the page and a good one is posted', async () => {
    const view = await open('/index.html');
    const outcome = await view.page.evaluate(async () => {
      const { connect } = await import('/gra-overlay.js');
      const overlay = connect();
      const errors = [];
      for (const [cmd, arg] of [['Jump', ''], ['jump', 'a\nb'], ['jump', 'x'.repeat(200)]]) {
        try {
          overlay.game(cmd, arg);
        } catch (error) {
          errors.push(error.name);
        }
      }
      overlay.game('jump', 'high "and" far');
      return errors;
    });
    assert.deepEqual(outcome, ['TypeError', 'TypeError', 'RangeError']);
    assert.deepEqual((await view.ofType('game')).map((m) => m.json), ['{"type":"game","cmd":"jump","arg":"high \\"and\\" far"}']);
    await view.close();
  });

  test('each warning shows as a banner in the region, windowed takes the fullscreen one away', async () => {
    await mkdir(screenshots, { recursive: true });
    const view = await open('/index.html', { backdrop: true });
    await answerFirstLoads(view);
    const banner = view.page.locator('#warning');
    assert.equal(await banner.isVisible(), false, 'no banner while nothing is wrong');
    await view.deliver(hostMessages.warn('elevated'));
    await eventually(async () => banner.isVisible(), 'the elevated banner');
    assert.match(await view.page.locator('#warning-text').textContent(), /runs as administrator/);
    await view.deliver(hostMessages.warn('fullscreen'));
    assert.match(await view.page.locator('#warning-text').textContent(), /runs as administrator.*exclusive fullscreen/s);
    await view.page.waitForTimeout(400);
    await regionBecomes(view, [await boxRect(view.page, '#warning')], 'the banner in the region');
    await view.page.screenshot({ path: path.join(screenshots, 'default-page-warning.png') });
    await view.deliver(hostMessages.warn('windowed'));
    assert.doesNotMatch(await view.page.locator('#warning-text').textContent(), /fullscreen/);
    await view.page.locator('#warning-close').click();
    assert.equal(await banner.isVisible(), false, 'dismissed');
    await regionBecomes(view, [], 'an empty region');
    assert.deepEqual(view.errors, []);
    await view.close();
  });

  test('screenshot of the default page over a game', async () => {
    await mkdir(screenshots, { recursive: true });
    const view = await open('/index.html', { backdrop: true });
    await answerFirstLoads(view, {
      'gra_pad.json': JSON.stringify({ text: 'Bridge at Eastfall: gate code 4-1-7\nBring 3 healing draughts\nAsk Aldric about the old mill' }),
    });
    await view.deliver(hostMessages.host());
    await view.deliver(hostMessages.note('"The merchant left a parcel for you at the inn."'));
    await view.deliver(hostMessages.note('{"title":"Quest updated","text":"Find the lost map in the old mill."}'));
    await view.deliver(hostMessages.note('"Kestrel invites you to a party."'));
    await view.page.waitForTimeout(500);
    await view.page.screenshot({ path: path.join(screenshots, 'default-page-notes.png') });
    await view.deliver(hostMessages.show('Welcome back, Ranger.\nThe bridge to Eastfall is open — meet Aldric at the gate before nightfall.'));
    await view.page.waitForTimeout(500);
    const file = path.join(screenshots, 'default-page.png');
    await view.page.screenshot({ path: file });
    assert.deepEqual(view.errors, []);
    await view.close();
  });
});

// ---- hit regions, on a page made for measuring ------------------------------------------------

describe('hit region', () => {
  test('equals the marked elements\' boxes and follows resizes, new elements and moves, one message a frame at most', async () => {
    const view = await open('/test/hits.html');
    const marked = async () => [await boxRect(view.page, '#fixed'), await boxRect(view.page, '#half')];
    await regionBecomes(view, [[20, 30, 200, 50], [640, 100, 640, 41]], 'the first region');
    assert.deepEqual(await marked(), [[20, 30, 200, 50], [640, 100, 640, 41]]);

    await view.page.setViewportSize({ width: 1000, height: 700 });
    await regionBecomes(view, [[20, 30, 200, 50], [500, 100, 500, 41]], 'the region after a resize');

    await view.page.evaluate(() => {
      const extra = document.createElement('div');
      extra.id = 'extra';
      extra.dataset.hit = '';
      extra.style.cssText = 'position:fixed;left:700px;top:500px;width:30px;height:20px';
      document.body.append(extra);
    });
    await regionBecomes(view, [[20, 30, 200, 50], [500, 100, 500, 41], [700, 500, 30, 20]], 'the region with a new element');

    // fifty changes in one task make one message
    const before = (await view.ofType('region')).length;
    await view.page.evaluate(() => {
      const element = document.getElementById('fixed');
      for (let width = 151; width <= 200; width += 1) element.style.width = `${width - 50}px`;
    });
    await regionBecomes(view, [[20, 30, 150, 50], [500, 100, 500, 41], [700, 500, 30, 20]], 'the narrowed element');
    await view.page.waitForTimeout(200);
    assert.equal((await view.ofType('region')).length, before + 1);

    await view.page.evaluate(() => document.getElementById('extra').removeAttribute('data-hit'));
    await regionBecomes(view, [[20, 30, 150, 50], [500, 100, 500, 41]], 'the region without the unmarked element');

    await view.page.evaluate(() => { document.getElementById('fixed').style.visibility = 'hidden'; });
    await regionBecomes(view, [[500, 100, 500, 41]], 'the region without the invisible element');

    // a transition moves an element without resizing it: the region follows it to the end
    await view.page.evaluate(() => {
      const slider = document.createElement('div');
      slider.id = 'slider';
      slider.dataset.hit = '';
      document.body.append(slider);
    });
    await regionBecomes(view, [[500, 100, 500, 41], [0, 400, 60, 20]], 'the slider at its start');
    const start = (await view.ofType('region')).length;
    await view.page.evaluate(() => document.getElementById('slider').classList.add('moved'));
    await regionBecomes(view, [[500, 100, 500, 41], [300, 400, 60, 20]], 'the slider at its end');
    assert.ok((await view.ofType('region')).length - start >= 3, 'the region moved along with the slider');

    // changes in several tasks of one frame still make one message in that frame
    await view.page.evaluate(() => new Promise((resolve) => {
      const element = document.getElementById('half');
      for (let i = 1; i <= 5; i += 1) {
        setTimeout(() => {
          element.style.height = `${45 + i}px`;
          if (i === 5) resolve();
        }, 0);
      }
    }));
    await regionBecomes(view, [[500, 100, 500, 50], [300, 400, 60, 20]], 'the taller element');

    await checkRegionMessages(view);
    assert.deepEqual(view.errors, []);
    await view.close();
  });
});

// ---- an ordinary browser: the development bridge ----------------------------------------------

describe('development bridge', () => {
  test('without window.chrome.webview the page runs against a simulated host', async () => {
    const context = await browser.newContext({ viewport: VIEWPORT });
    const view = await open('/index.html', { shim: false, context });
    await eventually(() => view.page.evaluate(() => Boolean(window.graOverlayDev)), 'the console API');
    assert.ok(view.consoleLines.includes('gra-overlay: page -> host {"type":"ready"}'), view.consoleLines.join('\n'));
    await view.page.evaluate(() => window.graOverlayDev.show('from the "dev" host'));
    await eventually(async () => (await view.page.locator('#pad-text').textContent()) === 'from the "dev" host', 'the pad');
    assert.equal(await view.page.evaluate(() => window.graOverlayDev.state.mode), 'active');

    // the panel's buttons play the game's side too; a note is the game's text, and one that is
    // not one JSON value goes no further, as in the program
    await view.page.locator('gra-overlay-dev input[name=note]').fill('plain words');
    await view.page.locator('gra-overlay-dev button[data-do=note]').click();
    await eventually(() => view.consoleLines.some((line) => line.startsWith('gra-overlay: the note plain words is not one JSON value')),
      'the warning');
    await view.page.locator('gra-overlay-dev input[name=note]').fill('{"title":"Dev","text":"a note"}');
    await view.page.locator('gra-overlay-dev button[data-do=note]').click();
    await eventually(async () => (await view.page.locator('#notes .note-title').allTextContents()).includes('Dev'), 'the note');

    await eventually(() => view.page.isEnabled('#notepad'), 'the notepad');
    await view.page.fill('#notepad', 'kept in local storage');
    await view.page.locator('#notepad').blur();
    await eventually(async () => (await view.page.locator('#pad-status').textContent()) === 'saved', 'the save');
    await view.page.screenshot({ path: path.join(screenshots, 'dev-bridge.png') });

    await view.page.locator('gra-overlay-dev button[data-do=close]').click();
    await eventually(async () => (await view.page.evaluate(() => window.graOverlayDev.state.mode)) === 'hidden', 'hidden');

    await view.page.reload();
    await eventually(async () => (await view.page.inputValue('#notepad')) === 'kept in local storage', 'the kept text');
    assert.deepEqual(view.errors, []);
    await context.close();
  });
});

describe('the author\'s mistakes', () => {
  test('an error thrown for a mistyped event name points at the page\'s line, not the library\'s', async () => {
    const view = await open('/test/mistake.html');
    await eventually(() => view.page.evaluate(() => window.reported?.length > 0), 'the error event');
    const [reported] = await view.page.evaluate(() => window.reported);
    assert.equal(reported.file, `${server.url}/test/mistake.js`);
    assert.equal(reported.line, 8);
    assert.equal(reported.column, 9);
    assert.match(reported.message, /RangeError: gra-overlay: there is no "shwo" event/);
    await view.close();
  });
});
