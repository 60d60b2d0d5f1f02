#!/usr/bin/env node
// A small static file server for trying a page in an ordinary browser, listening on 127.0.0.1
// only: `node serve.mjs FOLDER [PORT]` serves FOLDER (default: the current folder) at
// http://127.0.0.1:PORT/ (default 8080). The kit's browser tests use it too.
import http from 'node:http';
import { readFile, stat } from 'node:fs/promises';
import path from 'node:path';
import { pathToFileURL } from 'node:url';

const TYPES = {
  '.html': 'text/html; charset=utf-8',
  '.js': 'text/javascript; charset=utf-8',
  '.mjs': 'text/javascript; charset=utf-8',
  '.css': 'text/css; charset=utf-8',
  '.json': 'application/json; charset=utf-8',
  '.svg': 'image/svg+xml',
  '.png': 'image/png',
  '.jpg': 'image/jpeg',
  '.webp': 'image/webp',
  '.woff2': 'font/woff2',
  '.ico': 'image/x-icon',
  '.ts': 'text/plain; charset=utf-8',
};

// Maps a request path to a file under one of the mounted folders, or null when it leads outside.
function resolveFile(mounts, urlPath) {
  let decoded;
  try {
    decoded = decodeURIComponent(urlPath);
  } catch {
    return null;
  }
  for (const [prefix, folder] of mounts) {
    if (!decoded.startsWith(prefix)) continue;
    const file = path.resolve(folder, `.${path.posix.normalize(`/${decoded.slice(prefix.length)}`)}`);
    if (file === folder || file.startsWith(folder + path.sep)) return file;
    return null;
  }
  return null;
}

async function answer(mounts, request, response) {
  if (request.method !== 'GET' && request.method !== 'HEAD') {
    response.writeHead(405).end();
    return;
  }
  let file = resolveFile(mounts, new URL(request.url, 'http://127.0.0.1').pathname);
  try {
    if (file && (await stat(file)).isDirectory()) file = path.join(file, 'index.html');
    const body = await readFile(file);
    response.writeHead(200, {
      'content-type': TYPES[path.extname(file).toLowerCase()] ?? 'application/octet-stream',
      'cache-control': 'no-store',
    });
    response.end(request.method === 'HEAD' ? undefined : body);
  } catch {
    response.writeHead(404, { 'content-type': 'text/plain' }).end('not found');
  }
}

/**
 * Serves folders under URL prefixes, e.g. { '/': webFolder, '/test/': fixtures }; the longest
 * prefix wins. Resolves with the base URL and a close function.
 */
export async function serve(folders, port = 0) {
  const mounts = Object.entries(folders)
    .map(([prefix, folder]) => [prefix, path.resolve(folder)])
    .sort((a, b) => b[0].length - a[0].length);
  const server = http.createServer((request, response) => answer(mounts, request, response));
  await new Promise((resolve, reject) => {
    server.once('error', reject);
    server.listen(port, '127.0.0.1', resolve);
  });
  const url = `http://127.0.0.1:${server.address().port}`;
  return { url, close: () => new Promise((resolve) => server.close(resolve)) };
}

if (process.argv[1] && import.meta.url === pathToFileURL(path.resolve(process.argv[1])).href) {
  const folder = process.argv[2] ?? '.';
  const { url } = await serve({ '/': folder }, Number(process.argv[3] ?? 8080));
  console.log(`serving ${path.resolve(folder)} at ${url}/ (Ctrl+C ends)`);
}
