// Unit tests of web/gra-overlay.js in node: the messages it builds must read back exactly through
// the host's own field rules, and the host's messages must come out as the right events.
import { test, describe } from 'node:test';
import assert from 'node:assert/strict';
import { jsonField, parseRects, hostMessages, gameDatagram } from './host-rules.mjs';
import {
  connect, messages, readHostMessage, rectOf, checkGameCommand, utf8Length, PAGE_FILES, MODES,
} from '../../web/gra-overlay.js';

// What window.chrome.webview.postMessage hands the host: the object serialised as JSON.
const wire = (message) => JSON.stringify(message);

const TRICKY = [
  'plain',
  'a"b\\c\nd\re\tf',
  '"type":"load"',
  '{"file":"other.json","text":"x"}',
  'ends in a backslash \\',
  '\\"',
  'é ü 日本語 😀',
  '\u2028\u2029\u007f',
  '\u0000\u0001\u001f',
  '"text":"a fake field",',
  '',
];

describe('messages to the host read back through the host\'s field rules', () => {
  test('fixed messages are exact', () => {
    assert.equal(wire(messages.ready()), '{"type":"ready"}');
    assert.equal(wire(messages.cover()), '{"type":"cover","on":false}');
    assert.equal(wire(messages.hide()), '{"type":"hide"}');
    assert.equal(wire(messages.through(true)), '{"type":"through","on":true}');
    assert.equal(wire(messages.through(false)), '{"type":"through","on":false}');
    assert.equal(wire(messages.modal(1)), '{"type":"modal","on":true}');
    assert.equal(wire(messages.modal(0)), '{"type":"modal","on":false}');
  });

  test('the cover message takes the cover down', () => {
    const text = wire(messages.cover());
    assert.equal(jsonField(text, 'type'), 'cover');
    assert.notEqual(jsonField(text, 'on'), 'true');
  });

  test('mode names reach the host although "mode" is also the type', () => {
    for (const name of MODES) {
      const text = wire(messages.mode(name));
      assert.equal(text, `{"type":"mode","mode":"${name}"}`);
      assert.equal(jsonField(text, 'type'), 'mode');
      assert.equal(jsonField(text, 'mode'), name);
    }
    assert.throws(() => messages.mode('Active'), RangeError);
    assert.throws(() => messages.mode(''), RangeError);
  });

  test('region rectangles are plain integers the host parses back', () => {
    const text = wire(messages.region([[10, 20, 300, 40], [1.4, 2.6, 3, 4]]));
    assert.equal(text, '{"type":"region","rects":[[10,20,300,40],[1,3,3,4]]}');
    assert.deepEqual(parseRects(jsonField(text, 'rects')), [[10, 20, 300, 40], [1, 3, 3, 4]]);
  });

  test('region numbers never take an exponent and -0 is written as 0', () => {
    const text = wire(messages.region([[-5, -0, 1e12, 3e-9]]));
    assert.doesNotMatch(text, /\de/);
    assert.deepEqual(parseRects(jsonField(text, 'rects')), [[-5, 0, 1000000000, 0]]);
  });

  test('an empty region empties the host\'s region', () => {
    const text = wire(messages.region([]));
    assert.equal(text, '{"type":"region","rects":[]}');
    assert.deepEqual(parseRects(jsonField(text, 'rects')), []);
  });

  test('bad rectangles are refused', () => {
    assert.throws(() => messages.region([[1, 2, 3]]), TypeError);
    assert.throws(() => messages.region([[1, 2, 3, NaN]]), TypeError);
    assert.throws(() => messages.region('0,0,1,1'), TypeError);
  });

  test('load and save name the file as asked, in any case', () => {
    assert.equal(wire(messages.load('gra_pad.json')), '{"type":"load","file":"gra_pad.json"}');
    const upper = wire(messages.load('GRA_OVERLAY.JSON'));
    assert.equal(jsonField(upper, 'file'), 'GRA_OVERLAY.JSON');
    assert.deepEqual(PAGE_FILES, ['gra_pad.json', 'gra_overlay.json']);
  });

  test('other file names are refused before anything is sent', () => {
    for (const name of ['other.json', '..\\gra_pad.json', 'gra_pad.json ', '', 'gra_pad']) {
      assert.throws(() => messages.load(name), RangeError, name);
      assert.throws(() => messages.save(name, 'x'), RangeError, name);
    }
    assert.throws(() => messages.load(7), TypeError);
  });

  test('saved texts arrive exactly, whatever they hold', () => {
    for (const text of TRICKY) {
      const json = wire(messages.save('gra_pad.json', text));
      assert.equal(jsonField(json, 'type'), 'save', json);
      assert.equal(jsonField(json, 'file'), 'gra_pad.json', json);
      assert.equal(jsonField(json, 'text'), text, json);
    }
  });

  test('texts the host would mangle are refused', () => {
    // JSON writes these as \b and \f, which the host reads as the letters b and f.
    assert.throws(() => messages.save('gra_pad.json', 'a\bb'), TypeError);
    assert.throws(() => messages.save('gra_pad.json', 'a\fb'), TypeError);
    assert.throws(() => messages.save('gra_pad.json', 42), TypeError);
  });

  test('log texts arrive exactly, with \\b and \\f turned into spaces', () => {
    for (const text of TRICKY) assert.equal(jsonField(wire(messages.log(text)), 'text'), text);
    assert.equal(jsonField(wire(messages.log('a\bb\fc')), 'text'), 'a b c');
    assert.equal(jsonField(wire(messages.log(12)), 'text'), '12');
  });
});

describe('game commands are checked as the host checks them', () => {
  test('accepted commands reach the game as the page meant', () => {
    const cases = [
      [['jump', '3'], 'GRAO game jump 3'],
      [['jump'], 'GRAO game jump'],
      [['open_map', 'say "hi" \\ there'], 'GRAO game open_map say "hi" \\ there'],
      [['say', 'é 日本 😀'], 'GRAO game say é 日本 😀'],
      [['score', 12], 'GRAO game score 12'],
      [['x'.repeat(39), ''], `GRAO game ${'x'.repeat(39)}`],
      [['a', 'y'.repeat(199)], `GRAO game a ${'y'.repeat(199)}`],
      [['a', 'é'.repeat(99)], `GRAO game a ${'é'.repeat(99)}`],
    ];
    for (const [args, datagram] of cases) {
      const text = wire(messages.game(...args));
      assert.equal(jsonField(text, 'type'), 'game');
      assert.equal(gameDatagram(text), datagram);
    }
  });

  test('commands the host would drop throw instead', () => {
    const refused = [
      ['', ''], ['Jump', ''], ['jump2', ''], ['jump now', ''], ['x'.repeat(40), ''], ['é', ''],
      ['a', 'y'.repeat(200)], ['a', 'é'.repeat(100)], ['a', 'one\ntwo'], ['a', 'one\rtwo'],
      ['a', 'back\bspace'], [undefined, ''], ['a', {}],
    ];
    for (const [cmd, arg] of refused) {
      assert.throws(() => messages.game(cmd, arg), /gra-overlay: game\(\)/, `${cmd} ${arg}`);
      // and the host would indeed drop it
      if (typeof cmd === 'string' && typeof arg === 'string' && !/[\b]/.test(arg)) {
        assert.equal(gameDatagram(JSON.stringify({ type: 'game', cmd, arg })), null, `${cmd} ${arg}`);
      }
    }
  });

  test('lengths are counted in UTF-8 bytes', () => {
    assert.equal(utf8Length('é'), 2);
    assert.equal(utf8Length('😀'), 4);
    assert.equal(checkGameCommand('a', 7), '7');
  });
});

describe('messages from the host become events', () => {
  const read = (text) => readHostMessage(JSON.parse(text));

  test('show carries the pad exactly, or an empty one', () => {
    const pad = 'He said "go"\\back\nnext line\ttab é 😀 \u0001';
    assert.deepEqual(read(hostMessages.show(pad)), { event: 'show', detail: { type: 'show', pad } });
    assert.deepEqual(read(hostMessages.show()), { event: 'show', detail: { type: 'show', pad: '' } });
  });

  test('fixed messages', () => {
    for (const type of ['close', 'away', 'back']) {
      assert.deepEqual(read(hostMessages[type]()), { event: type, detail: { type } });
    }
    assert.deepEqual(read(hostMessages.host()), { event: 'host', detail: { type: 'host', through: true, hit: true } });
  });

  test('notes carry any JSON value', () => {
    assert.deepEqual(read(hostMessages.note('"hello"')).detail.note, 'hello');
    assert.deepEqual(read(hostMessages.note('{"title":"Quest","n":[1,2]}')).detail.note, { title: 'Quest', n: [1, 2] });
    assert.equal(read(hostMessages.note('3')).detail.note, 3);
  });

  test('each warning reaches the page as a warn event', () => {
    for (const what of ['elevated', 'fullscreen', 'windowed']) {
      assert.deepEqual(read(hostMessages.warn(what)), { event: 'warn', detail: { type: 'warn', what } });
    }
  });

  test('file and saved replies', () => {
    const text = 'line "one"\\\nline two é';
    assert.deepEqual(read(hostMessages.file('GRA_PAD.JSON', true, text)).detail,
      { type: 'file', name: 'GRA_PAD.JSON', ok: true, text });
    assert.deepEqual(read(hostMessages.file('other.json', false, '')).detail,
      { type: 'file', name: 'other.json', ok: false, text: '' });
    assert.deepEqual(read(hostMessages.saved('gra_pad.json', true)).detail, { type: 'saved', name: 'gra_pad.json', ok: true });
  });

  test('anything else is a page message from the game', () => {
    assert.deepEqual(readHostMessage({ type: 'score', value: 3 }), { event: 'page', detail: { type: 'score', value: 3 } });
    assert.deepEqual(readHostMessage('just a string'), { event: 'page', detail: 'just a string' });
    assert.deepEqual(readHostMessage([1, 2]), { event: 'page', detail: [1, 2] });
    assert.deepEqual(readHostMessage({ type: 'Show' }), { event: 'page', detail: { type: 'Show' } });
  });
});

test('rectangles cover the whole box in whole pixels', () => {
  assert.deepEqual(rectOf({ left: 10.5, top: 20.25, right: 110.5, bottom: 40 }), [10, 20, 101, 20]);
  assert.deepEqual(rectOf({ left: -3, top: 0, right: 5, bottom: 1 }), [-3, 0, 8, 1]);
});

// ---------------------------------------------------------------------------------------------

const later = (ms = 5) => new Promise((resolve) => setTimeout(resolve, ms));

async function until(condition, what) {
  for (let waited = 0; !condition(); waited += 5) {
    if (waited > 2000) assert.fail(`waited 2 s for ${what}`);
    await later(5);
  }
}

function fakeWindow(extra = {}) {
  const win = new EventTarget();
  return Object.assign(win, {
    document: { readyState: 'complete' },
    setTimeout: (fn, ms) => setTimeout(fn, ms),
    clearTimeout: (id) => clearTimeout(id),
    requestAnimationFrame: (fn) => setTimeout(() => fn(0), 1),
    ...extra,
  });
}

function fakeWebview() {
  const view = new EventTarget();
  view.sent = [];
  view.postMessage = (message) => view.sent.push(JSON.stringify(message));
  view.deliver = (json) => view.dispatchEvent(new MessageEvent('message', { data: JSON.parse(json) }));
  return view;
}

function connected(options = {}) {
  const webview = fakeWebview();
  const win = fakeWindow();
  const overlay = connect({ window: win, webview, ...options });
  return { overlay, webview, win };
}

describe('connect()', () => {
  test('ready goes at once and only once; the cover follows the first frame', async () => {
    const { overlay, webview, win } = connected();
    assert.deepEqual(webview.sent, ['{"type":"ready"}']);
    assert.equal(connect({ window: win }), overlay, 'one connection per window');
    await until(() => webview.sent.length >= 2, 'ready and cover');
    await later(20);
    assert.deepEqual(webview.sent, ['{"type":"ready"}', '{"type":"cover","on":false}']);
    assert.equal(overlay.ready(), false);
    assert.equal(overlay.coverOff(), false);
    assert.equal(webview.sent.length, 2);
    overlay.disconnect();
  });

  test('ready and cover can be left to the page', async () => {
    const { overlay, webview } = connected({ ready: false, coverOff: false });
    await later(100);
    assert.deepEqual(webview.sent, []);
    assert.equal(overlay.ready(), true);
    assert.deepEqual(webview.sent, ['{"type":"ready"}']);
    overlay.disconnect();
  });

  test('events reach their handlers, every message reaches "message"', async () => {
    const { overlay, webview } = connected({ ready: false, coverOff: false });
    const seen = [];
    overlay.on('show', (e) => seen.push(['show', e.pad]));
    overlay.on('note', (e) => seen.push(['note', e.note]));
    overlay.on('page', (e) => seen.push(['page', e]));
    overlay.on('message', (e) => seen.push(['message', e.type]));
    const off = overlay.on('away', () => seen.push(['away']));
    webview.deliver(hostMessages.show('x"y'));
    webview.deliver(hostMessages.note('"n1"'));
    webview.deliver('{"type":"quest","id":4}');
    webview.deliver(hostMessages.away());
    off();
    webview.deliver(hostMessages.away());
    assert.deepEqual(seen, [
      ['message', 'show'], ['show', 'x"y'],
      ['message', 'note'], ['note', 'n1'],
      ['message', 'quest'], ['page', { type: 'quest', id: 4 }],
      ['message', 'away'], ['away'],
      ['message', 'away'],
    ]);
    overlay.disconnect();
  });

  test('unknown event names are refused', () => {
    const { overlay } = connected({ ready: false, coverOff: false });
    assert.throws(() => overlay.on('shown', () => {}), RangeError);
    assert.throws(() => overlay.on('show'), TypeError);
    overlay.disconnect();
  });

  test('an error for the author\'s mistake starts its stack at the author\'s call', async () => {
    const { overlay } = connected({ ready: false, coverOff: false });
    const firstFrame = (error) => error.stack.split('\n').find((line) => /^\s+at /.test(line));
    const thisFile = /library\.test\.mjs:\d+:\d+/;
    const mistakes = [
      () => overlay.on('shown', () => {}),
      () => overlay.mode('Active'),
      () => overlay.game('Show', 'x'),
      () => messages.region([[1, 2, 3]]),
      () => checkGameCommand('note hello'),
    ];
    for (const mistake of mistakes) {
      let caught = null;
      try {
        mistake();
      } catch (error) {
        caught = error;
      }
      assert.ok(caught, String(mistake));
      assert.match(firstFrame(caught), thisFile, caught.stack);
      assert.doesNotMatch(caught.stack, /gra-overlay\.js/, caught.stack);
    }
    const refused = await overlay.load('quests.json').then(() => null, (error) => error);
    assert.ok(refused instanceof RangeError);
    assert.match(firstFrame(refused), thisFile, refused.stack);
    overlay.disconnect();
  });

  test('away, back and host are remembered', () => {
    const { overlay, webview } = connected({ ready: false, coverOff: false });
    assert.equal(overlay.away, false);
    assert.equal(overlay.host, null);
    webview.deliver(hostMessages.away());
    assert.equal(overlay.away, true);
    webview.deliver(hostMessages.back());
    assert.equal(overlay.away, false);
    webview.deliver(hostMessages.host());
    assert.deepEqual(overlay.host, { through: true, hit: true });
    overlay.disconnect();
  });

  test('close hides the overlay unless the page handles it', () => {
    const { overlay, webview } = connected({ ready: false, coverOff: false });
    webview.deliver(hostMessages.close());
    assert.deepEqual(webview.sent, ['{"type":"hide"}']);
    let closes = 0;
    overlay.on('close', () => { closes += 1; });
    webview.deliver(hostMessages.close());
    assert.equal(closes, 1);
    assert.deepEqual(webview.sent, ['{"type":"hide"}']);
    overlay.disconnect();
  });

  test('the page\'s calls post their messages', () => {
    const { overlay, webview } = connected({ ready: false, coverOff: false });
    overlay.mode('passive');
    overlay.through(true);
    overlay.modal(false);
    overlay.hide();
    overlay.log('hello');
    overlay.game('jump', 'high');
    overlay.region([[0, 0, 10, 10]]);
    assert.deepEqual(webview.sent, [
      '{"type":"mode","mode":"passive"}',
      '{"type":"through","on":true}',
      '{"type":"modal","on":false}',
      '{"type":"hide"}',
      '{"type":"log","text":"hello"}',
      '{"type":"game","cmd":"jump","arg":"high"}',
      '{"type":"region","rects":[[0,0,10,10]]}',
    ]);
    assert.throws(() => overlay.game('Jump'), TypeError);
    assert.equal(webview.sent.length, 7, 'a refused command posts nothing');
    overlay.disconnect();
  });

  test('load and save resolve on their replies, in order, by name', async () => {
    const { overlay, webview } = connected({ ready: false, coverOff: false });
    const pad = overlay.load('gra_pad.json');
    const settings = overlay.load('GRA_OVERLAY.JSON');
    const again = overlay.load('gra_pad.json');
    const saved = overlay.save('gra_pad.json', 'new "text"\n');
    assert.deepEqual(webview.sent, [
      '{"type":"load","file":"gra_pad.json"}',
      '{"type":"load","file":"GRA_OVERLAY.JSON"}',
      '{"type":"load","file":"gra_pad.json"}',
      '{"type":"save","file":"gra_pad.json","text":"new \\"text\\"\\n"}',
    ]);
    webview.deliver(hostMessages.file('GRA_OVERLAY.JSON', true, '{"side":"left"}'));
    webview.deliver(hostMessages.file('gra_pad.json', true, 'first "one"\\'));
    webview.deliver(hostMessages.file('gra_pad.json', false, ''));
    webview.deliver(hostMessages.saved('gra_pad.json', true));
    assert.equal(await pad, 'first "one"\\');
    assert.equal(await settings, '{"side":"left"}');
    assert.equal(await again, null);
    assert.equal(await saved, true);
    overlay.disconnect();
  });

  test('a failed save resolves false; bad names reject without posting', async () => {
    const { overlay, webview } = connected({ ready: false, coverOff: false });
    const saved = overlay.save('gra_overlay.json', '{}');
    webview.deliver(hostMessages.saved('gra_overlay.json', false));
    assert.equal(await saved, false);
    await assert.rejects(overlay.load('notes.txt'), RangeError);
    await assert.rejects(overlay.save('gra_pad.json', null), TypeError);
    assert.equal(webview.sent.length, 1);
    overlay.disconnect();
  });

  test('loadJSON parses, and falls back on a missing or broken file', async () => {
    const { overlay, webview } = connected({ ready: false, coverOff: false });
    const good = overlay.loadJSON('gra_overlay.json', {});
    webview.deliver(hostMessages.file('gra_overlay.json', true, '\uFEFF{"side":"left"}'));
    assert.deepEqual(await good, { side: 'left' });
    const broken = overlay.loadJSON('gra_overlay.json', { side: 'right' });
    webview.deliver(hostMessages.file('gra_overlay.json', true, '{oops'));
    assert.deepEqual(await broken, { side: 'right' });
    assert.match(webview.sent.at(-1), /^\{"type":"log","text":"gra_overlay.json is not valid JSON/);
    overlay.disconnect();
  });

  test('a reply that never comes rejects, and its late reply is not taken by the next request', async () => {
    const { overlay, webview } = connected({ ready: false, coverOff: false, replyTimeout: 20 });
    await assert.rejects(overlay.load('gra_pad.json'), /no reply from the host/);
    const next = overlay.load('gra_pad.json');
    webview.deliver(hostMessages.file('gra_pad.json', true, 'late'));
    webview.deliver(hostMessages.file('gra_pad.json', true, 'mine'));
    assert.equal(await next, 'mine');
    overlay.disconnect();
  });

  test('a throwing handler is logged to the host and the others still run', () => {
    const { overlay, webview } = connected({ ready: false, coverOff: false });
    const original = console.error;
    console.error = () => {};
    let second = false;
    overlay.on('show', () => { throw new Error('boom'); });
    overlay.on('show', () => { second = true; });
    webview.deliver(hostMessages.show());
    console.error = original;
    assert.equal(second, true);
    assert.deepEqual(webview.sent, ['{"type":"log","text":"error: show handler: Error: boom"}']);
    overlay.disconnect();
  });
});

describe('development bridge (no window.chrome.webview)', () => {
  function devWindow() {
    const store = new Map();
    const localStorage = {
      getItem: (k) => (store.has(k) ? store.get(k) : null),
      setItem: (k, v) => store.set(k, String(v)),
    };
    return fakeWindow({ localStorage });
  }

  async function quietly(fn) {
    const original = console.info;
    const lines = [];
    console.info = (...args) => lines.push(args.join(' '));
    try {
      await fn(lines);
    } finally {
      console.info = original;
    }
  }

  test('answers like the host and logs what the page sends', () => quietly(async (lines) => {
    const win = devWindow();
    const overlay = connect({ window: win, coverOff: false, devPanel: false, ready: false });
    assert.equal(overlay.dev, true);
    const seen = [];
    overlay.on('message', (m) => seen.push(JSON.stringify(m)));
    // played before the page is ready: held back until it is
    win.graOverlayDev.show('pad "1"');
    win.graOverlayDev.note({ text: 'first' });
    win.graOverlayDev.note('"second"');
    await later(20);
    assert.deepEqual(seen, []);
    overlay.ready();
    await until(() => seen.length >= 4, 'the answers to ready');
    await later(20);
    assert.deepEqual(seen, [
      '{"type":"show","pad":"pad \\"1\\""}',
      '{"type":"note","note":{"text":"first"}}',
      '{"type":"note","note":"second"}',
      '{"type":"host","through":true,"hit":true}',
    ]);
    assert.ok(lines.includes('gra-overlay: page -> host {"type":"ready"}'));
    assert.equal(win.graOverlayDev.state.mode, 'active');
    win.graOverlayDev.close();
    await until(() => win.graOverlayDev.state.mode === 'hidden', 'the page to hide');
    assert.equal(win.graOverlayDev.state.mode, 'hidden', 'close without a handler hides');
    overlay.disconnect();
  }));

  test('tells each warning as the host does, held until the page is ready', () => quietly(async (lines) => {
    const win = devWindow();
    const overlay = connect({ window: win, coverOff: false, devPanel: false, ready: false });
    const seen = [];
    overlay.on('warn', ({ what }) => seen.push(what));
    win.graOverlayDev.warn('elevated');
    await later(20);
    assert.deepEqual(seen, []);
    overlay.ready();
    await until(() => seen.length >= 1, 'the held warning');
    win.graOverlayDev.warn('fullscreen');
    win.graOverlayDev.warn('windowed');
    await until(() => seen.length >= 3, 'the later warnings');
    assert.deepEqual(seen, ['elevated', 'fullscreen', 'windowed']);
    assert.ok(lines.includes('gra-overlay: host -> game: GRAO warn elevated'));
    assert.ok(lines.includes('gra-overlay: host log: the game left exclusive fullscreen'));
    assert.throws(() => win.graOverlayDev.warn('Fullscreen'), RangeError);
    overlay.disconnect();
  }));

  test('a note that is not one JSON value is dropped with a warning, as the program drops it', () => quietly(async () => {
    const win = devWindow();
    const overlay = connect({ window: win, coverOff: false, devPanel: false });
    await later(20);
    const seen = [];
    overlay.on('note', (e) => seen.push(e.note));
    const warnings = [];
    const original = console.warn;
    console.warn = (...args) => warnings.push(args.join(' '));
    try {
      win.graOverlayDev.note('hello');
      win.graOverlayDev.note('"a" "b"');
      win.graOverlayDev.note('"hello"');
    } finally {
      console.warn = original;
    }
    await until(() => seen.length >= 1, 'the note');
    await later(20);
    assert.deepEqual(seen, ['hello']);
    assert.equal(warnings.length, 2);
    assert.match(warnings[0], /the note hello is not one JSON value; the program drops it/);
    assert.equal(win.graOverlayDev.state.mode, 'passive', 'a dropped note still makes a hidden overlay passive');
    overlay.disconnect();
  }));

  test('keeps the page files in local storage', () => quietly(async () => {
    const overlay = connect({ window: devWindow(), coverOff: false, devPanel: false });
    assert.equal(await overlay.load('gra_pad.json'), null);
    assert.equal(await overlay.save('GRA_PAD.JSON', 'kept "text"'), true);
    assert.equal(await overlay.load('gra_pad.json'), 'kept "text"');
    overlay.disconnect();
  }));
});
