// Runs in every document before the page's own scripts: window.chrome.webview
// as WebView2 offers it. postMessage hands the message, as JSON text, to the
// bridge's binding; the host's messages arrive as "message" events whose data
// is already parsed.
(() => {
  if (window.chrome && window.chrome.webview) return;
  const events = new EventTarget();
  const webview = {
    postMessage(message) {
      const json = JSON.stringify(message);
      if (json === undefined) throw new TypeError('chrome.webview.postMessage: the message cannot be sent as JSON');
      globalThis.__graWebViewPost(json);
    },
    addEventListener: (type, listener, options) => events.addEventListener(type, listener, options),
    removeEventListener: (type, listener, options) => events.removeEventListener(type, listener, options),
  };
  Object.defineProperty(globalThis, '__graWebViewDeliver', {
    value: (data) => events.dispatchEvent(new MessageEvent('message', { data })),
  });
  window.chrome = window.chrome || {};
  Object.defineProperty(window.chrome, 'webview', { value: webview, enumerable: true });
})();
