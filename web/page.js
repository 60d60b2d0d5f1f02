// The default overlay page: the pad text of "show", the game's notes, a notepad and a few
// settings. It uses only the public API of gra-overlay.js; copy it as a start for your own page.
import { connect } from './gra-overlay.js';

const PAD_FILE = 'gra_pad.json';
const SETTINGS_FILE = 'gra_overlay.json';
const DEFAULT_SETTINGS = Object.freeze({ side: 'right', noteSeconds: 8, textSize: 'normal' });
const NOTE_SECONDS = [4, 8, 15, 30];
const MAX_NOTES = 100;
const CLOSE_MS = 160;

const overlay = connect();
const $ = (selector) => document.querySelector(selector);
const root = document.documentElement;
const panel = $('#panel');
const notepad = $('#notepad');

let settings = { ...DEFAULT_SETTINGS };
let closeTimer = 0;

// ---- showing and closing ---------------------------------------------------------------------

overlay.on('show', ({ pad }) => {
  $('#pad').hidden = pad === '';
  $('#pad-text').textContent = pad;
  openPanel();
});

// The game asked to hide: finish what is open, then let the host hide the window.
overlay.on('close', () => closePanel());

// Once the host says it can, notes shown while the panel is closed let the mouse through to the game.
overlay.on('host', ({ through }) => {
  if (through) overlay.through(true);
});

function openPanel() {
  clearTimeout(closeTimer);
  panel.classList.remove('closing');
  if (panel.hidden) {
    panel.hidden = false;
    overlay.modal(true);
  }
  $('#toasts').replaceChildren();
  scrollNotesToEnd();
  panel.focus({ preventScroll: true });
}

function closePanel() {
  savePad();
  $('#toasts').replaceChildren();
  if (panel.hidden) {
    overlay.hide();
    return;
  }
  panel.classList.add('closing');
  clearTimeout(closeTimer);
  closeTimer = setTimeout(() => {
    panel.hidden = true;
    panel.classList.remove('closing');
    overlay.modal(false);
    overlay.hide();
  }, animationsRun() ? CLOSE_MS : 0);
}

// Timers keep running while the game is away, CSS animations do not: a close must not wait for them.
function animationsRun() {
  return !overlay.away && !matchMedia('(prefers-reduced-motion: reduce)').matches;
}

$('#close').addEventListener('click', () => closePanel());
document.addEventListener('keydown', (event) => {
  if (event.key === 'Escape' && !panel.hidden) closePanel();
});

// ---- away and back: everything that moves waits for the player -------------------------------

overlay.on('away', () => root.classList.add('away'));
overlay.on('back', () => root.classList.remove('away'));

// ---- warnings: why the overlay cannot work, in the player's words ------------------------------

const WARNING_TEXTS = Object.freeze({
  elevated: 'The game runs as administrator and this overlay does not, so Windows keeps the overlay '
    + 'away from the game. Start both the same way: both as administrator, or neither.',
  fullscreen: 'The game runs in exclusive fullscreen, where the overlay cannot be seen. '
    + 'Switch the game to borderless windowed in its display settings.',
});
const warnings = new Set();

overlay.on('warn', ({ what }) => {
  if (what === 'windowed') warnings.delete('fullscreen');
  else if (what in WARNING_TEXTS) warnings.add(what);
  showWarnings();
});

function showWarnings() {
  const banner = $('#warning');
  banner.hidden = warnings.size === 0;
  $('#warning-text').replaceChildren(...[...warnings].map((what) => element('p', 'warning-line', WARNING_TEXTS[what])));
}

$('#warning-close').addEventListener('click', () => {
  warnings.clear();
  showWarnings();
});

// ---- notes ---------------------------------------------------------------------------------

overlay.on('note', ({ note }) => {
  const { title, text } = describeNote(note);
  addToList(title, text);
  if (panel.hidden) showToast(title, text);
});

// A note is any JSON value: a text, an object with "title" and "text", or anything else shown as JSON.
function describeNote(note) {
  if (typeof note === 'string') return { title: '', text: note };
  if (note && typeof note === 'object' && !Array.isArray(note) && ('text' in note || 'title' in note)) {
    return { title: String(note.title ?? ''), text: String(note.text ?? '') };
  }
  return { title: '', text: JSON.stringify(note) };
}

function addToList(title, text) {
  const list = $('#notes');
  const item = element('li', 'note');
  const time = element('time', 'note-time', new Date().toLocaleTimeString([], { hour: '2-digit', minute: '2-digit' }));
  const body = element('div', 'note-body');
  if (title) body.append(element('strong', 'note-title', title));
  body.append(element('span', 'note-text', text));
  item.append(time, body);
  list.append(item);
  while (list.children.length > MAX_NOTES) list.firstElementChild.remove();
  $('#note-count').textContent = String(list.children.length);
  $('#no-notes').hidden = true;
  scrollNotesToEnd();
}

function scrollNotesToEnd() {
  const list = $('#notes');
  list.scrollTop = list.scrollHeight;
}

function showToast(title, text) {
  const toast = element('div', 'toast');
  toast.dataset.hit = '';
  if (title) toast.append(element('strong', 'note-title', title));
  toast.append(element('span', 'note-text', text));
  const timer = element('span', 'toast-timer');
  timer.style.animationDuration = `${settings.noteSeconds}s`;
  // The timer bar is a CSS animation, so a toast's time stands still while the game is away.
  timer.addEventListener('animationend', () => dismissToast(toast));
  toast.append(timer);
  $('#toasts').append(toast);
}

function dismissToast(toast) {
  toast.remove();
  if (panel.hidden && $('#toasts').children.length === 0) overlay.hide();
}

function element(tag, className, text) {
  const node = document.createElement(tag);
  node.className = className;
  if (text !== undefined) node.textContent = text;
  return node;
}

// ---- notepad, kept in gra_pad.json -------------------------------------------------------------

let savedText = '';
let saveTimer = 0;

function padStatus(text) {
  $('#pad-status').textContent = text;
}

async function loadPad() {
  padStatus('loading…');
  try {
    const data = await overlay.loadJSON(PAD_FILE, { text: '' });
    notepad.value = typeof data?.text === 'string' ? data.text : '';
    padStatus('');
  } catch (error) {
    padStatus('could not load');
    overlay.log(`notepad: ${error.message}`);
  }
  savedText = notepad.value;
  notepad.placeholder = 'Write down what you need to remember…';
  notepad.disabled = false;
}

async function savePad() {
  clearTimeout(saveTimer);
  const text = notepad.value;
  if (notepad.disabled || text === savedText) return;
  savedText = text;
  padStatus('saving…');
  const ok = await overlay.saveJSON(PAD_FILE, { text }).catch(() => false);
  if (!ok) savedText = null;
  if (notepad.value === text) padStatus(ok ? 'saved' : 'not saved');
}

notepad.addEventListener('input', () => {
  padStatus('');
  clearTimeout(saveTimer);
  saveTimer = setTimeout(savePad, 700);
});
notepad.addEventListener('blur', () => savePad());

// ---- settings, kept in gra_overlay.json --------------------------------------------------------

function normalizeSettings(value) {
  const given = value && typeof value === 'object' ? value : {};
  return {
    side: given.side === 'left' ? 'left' : 'right',
    noteSeconds: NOTE_SECONDS.includes(given.noteSeconds) ? given.noteSeconds : DEFAULT_SETTINGS.noteSeconds,
    textSize: given.textSize === 'large' ? 'large' : 'normal',
  };
}

function applySettings() {
  root.dataset.side = settings.side;
  root.dataset.textSize = settings.textSize;
  const form = $('#settings');
  form.elements.side.value = settings.side;
  form.elements.noteSeconds.value = String(settings.noteSeconds);
  form.elements.textSize.value = settings.textSize;
}

async function loadSettings() {
  try {
    settings = normalizeSettings(await overlay.loadJSON(SETTINGS_FILE, {}));
  } catch (error) {
    overlay.log(`settings: ${error.message}`);
  }
  applySettings();
}

$('#settings').addEventListener('change', () => {
  const form = $('#settings').elements;
  settings = normalizeSettings({
    side: form.side.value,
    noteSeconds: Number(form.noteSeconds.value),
    textSize: form.textSize.value,
  });
  applySettings();
  overlay.saveJSON(SETTINGS_FILE, settings).catch((error) => overlay.log(`settings: ${error.message}`));
});

applySettings();
loadSettings();
loadPad();
