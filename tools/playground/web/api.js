// Talking to the server. Every failure becomes an ApiError whose message a
// person can read as it is; `status` is 0 when the server did not answer.

export class ApiError extends Error {
  constructor(status, message) {
    super(message);
    this.status = status;
  }
}

const GONE =
  'The playground server is not answering. Start it again with "make playground", then reload this page.';

// The words of a failed reply: its "error", else its status line.
function failure(status, statusText, text) {
  try {
    const reply = JSON.parse(text);
    if (reply && typeof reply.error === 'string') return new ApiError(status, reply.error);
  } catch {
    // not JSON: keep the status line
  }
  // A proxy or a restarted server may answer 502/504 without our words.
  return new ApiError(status, `The server answered ${status} ${statusText}.`);
}

async function send(method, url, body, type) {
  const init = { method, headers: {} };
  if (body !== undefined) {
    init.body = body;
    init.headers['Content-Type'] = type;
  }
  let response;
  try {
    response = await fetch(url, init);
  } catch {
    throw new ApiError(0, GONE);
  }
  if (response.ok) return response;
  let text = '';
  try {
    text = await response.text();
  } catch {
    // the body broke off: the status line says enough
  }
  throw failure(response.status, response.statusText, text);
}

export async function getJson(url) {
  return (await send('GET', url)).json();
}

export async function postJson(url, value) {
  const response = await send('POST', url, JSON.stringify(value), 'application/json');
  return response.status === 204 ? null : response.json();
}

// The file as the body; progress(sent, total) as it goes out (fetch cannot
// tell, so this is an XMLHttpRequest).
export function postFile(url, file, progress) {
  return new Promise((resolve, reject) => {
    const request = new XMLHttpRequest();
    request.open('POST', url);
    request.setRequestHeader('Content-Type', file.type || 'application/octet-stream');
    request.upload.addEventListener('progress', (e) => progress(e.loaded, e.total || file.size));
    request.addEventListener('error', () => reject(new ApiError(0, GONE)));
    request.addEventListener('load', () => {
      if (request.status >= 200 && request.status < 300) {
        try {
          resolve(JSON.parse(request.responseText));
        } catch {
          reject(new ApiError(500, 'The server sent a reply the page cannot read.'));
        }
      } else {
        reject(failure(request.status, request.statusText, request.responseText));
      }
    });
    request.send(file);
  });
}

export async function getBlob(url) {
  try {
    return await (await send('GET', url)).blob();
  } catch (error) {
    if (error instanceof ApiError) throw error;
    throw new ApiError(0, GONE);  // the body broke off
  }
}

// Fire and forget, also while the page unloads: a beacon is sent even as
// the tab closes.
export function sendBeacon(url) {
  if (!navigator.sendBeacon(url)) fetch(url, { method: 'POST', keepalive: true }).catch(() => {});
}
