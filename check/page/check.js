// The check page's side: it tells gra-overlay-check.exe, over the game link (the program passes
// a page's "game" commands on to the game's address), what happened here, and carries out the
// requests the check sends with the game's "page" command ({"type":"check","op":...}).
import { connect, rectOf } from './gra-overlay.js';

const overlay = connect();
const box = document.getElementById('box');
const field = document.getElementById('field');

function tell(cmd, arg = '') {
  overlay.game(cmd, String(arg).slice(0, 150));
}

function boxText() {
  if (!box || !box.hasAttribute('data-hit')) return 'none';
  return rectOf(box.getBoundingClientRect()).join(' ');
}

// "host" is the program's answer to "ready": from then on it passes the page's game commands on.
overlay.on('host', () => tell('page_ready', `${boxText()} ${devicePixelRatio}`));
overlay.on('show', () => {
  field.value = '';
  field.focus();
  tell('shown', document.hasFocus() ? 'focus' : 'no_focus');
});
overlay.on('away', () => tell('away'));
overlay.on('back', () => tell('back'));
box?.addEventListener('pointerdown', (event) => tell('box_click', `${Math.round(event.clientX)} ${Math.round(event.clientY)}`));
field.addEventListener('input', () => tell('typed', field.value.replace(/[^ -~]/g, '?')));

const requests = {
  ping: () => tell('pong', boxText()),
  mode: ({ mode }) => overlay.mode(mode),
  focus: () => {
    field.value = '';
    field.focus();
    tell('focused', document.activeElement === field ? 'field' : 'elsewhere');
  },
  async save({ text }) {
    const saved = await overlay.save('gra_overlay.json', text);
    if (!saved) return tell('file_failed', 'save');
    const loaded = await overlay.load('gra_overlay.json');
    return loaded === null ? tell('file_failed', 'load') : tell('file', loaded);
  },
};

overlay.on('page', (message) => {
  const request = message && message.type === 'check' ? requests[message.op] : undefined;
  if (!request) return;
  Promise.resolve(request(message)).catch((error) => tell('page_error', error.message));
});
