// Stands in for WebView2's window.chrome.webview inside the test browser. It records every message
// the page posts, as the JSON text the host would receive, with the number of the animation frame
// it was posted in, and delivers the host's messages as the "message" events WebView2 raises.
// Playwright runs it in the page before any of the page's own scripts.
export function installWebviewShim({ backdrop = false } = {}) {
  let frame = 0;
  const countFrames = () => {
    frame += 1;
    requestAnimationFrame(countFrames);
  };
  requestAnimationFrame(countFrames);

  const sent = [];
  const webview = new EventTarget();
  webview.postMessage = (message) => {
    sent.push({ json: JSON.stringify(message), frame, time: performance.now() });
  };
  window.chrome = window.chrome || {};
  Object.defineProperty(window.chrome, 'webview', { value: webview });

  window.__gra = {
    sent,
    frame: () => frame,
    // The host's text is parsed by the browser and arrives as an object, as PostWebMessageAsJson does.
    deliver(json) {
      webview.dispatchEvent(new MessageEvent('message', { data: JSON.parse(json) }));
    },
  };

  if (backdrop) {
    // A game-like scene behind the transparent page, for the screenshot.
    const style = document.createElement('style');
    style.textContent = `html {
      background:
        radial-gradient(circle at 22% 30%, #ffd9a0 0, #ffb86b 3%, transparent 3.4%),
        radial-gradient(ellipse 70% 40% at 22% 32%, #ff9a5a55, transparent 70%),
        linear-gradient(172deg, transparent 62%, #1a2433 62.3%, #121a26 100%),
        linear-gradient(186deg, transparent 55%, #2a3650 55.3%, #1d2739 100%),
        linear-gradient(168deg, transparent 50%, #3b4768 50.3%, #2b3552 100%),
        linear-gradient(180deg, #1f2b4d 0%, #55507a 35%, #c9786a 58%, #e9a46f 66%) !important;
    }`;
    document.addEventListener('DOMContentLoaded', () => document.head.append(style));
  }
}
