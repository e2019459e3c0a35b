// A web server for one page and the files of one folder, on this machine only, with range requests:
// without them a browser cannot seek.
import { createReadStream, promises as fs } from 'node:fs';
import { createServer } from 'node:http';
import path from 'node:path';

const page = `<!doctype html><meta charset="utf-8"><title>player</title><video muted></video>`;

function parseRange(header, size) {
  const match = /^bytes=(\d*)-(\d*)$/.exec(header ?? '');
  if (!match || (match[1] === '' && match[2] === '')) return null;
  if (match[1] === '') return { begin: Math.max(0, size - Number(match[2])), end: size - 1 };
  const end = match[2] === '' ? size - 1 : Math.min(Number(match[2]), size - 1);
  return { begin: Number(match[1]), end };
}

async function answer(folder, request, response) {
  const name = path.basename(decodeURIComponent(new URL(request.url, 'http://localhost').pathname));
  if (name === '') {
    response.writeHead(200, { 'Content-Type': 'text/html' }).end(page);
    return;
  }
  const file = path.join(folder, name);
  const { size } = await fs.stat(file);
  const headers = { 'Content-Type': 'video/mp4', 'Accept-Ranges': 'bytes' };
  const range = parseRange(request.headers.range, size);
  if (range && range.begin > range.end) {
    response.writeHead(416, { 'Content-Range': `bytes */${size}` }).end();
  } else if (range) {
    headers['Content-Range'] = `bytes ${range.begin}-${range.end}/${size}`;
    headers['Content-Length'] = range.end - range.begin + 1;
    response.writeHead(206, headers);
    createReadStream(file, { start: range.begin, end: range.end }).pipe(response);
  } else {
    response.writeHead(200, { ...headers, 'Content-Length': size });
    createReadStream(file).pipe(response);
  }
}

/// Resolves to the server, listening on a free port of 127.0.0.1.
export function serve(folder) {
  const server = createServer((request, response) => {
    answer(folder, request, response).catch(() => response.writeHead(404).end());
  });
  return new Promise((resolve) => server.listen(0, '127.0.0.1', () => resolve(server)));
}
