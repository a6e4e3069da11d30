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
  let message = `The server answered ${response.status} ${response.statusText}.`;
  try {
    const reply = await response.json();
    if (reply && typeof reply.error === 'string') message = reply.error;
  } catch {
    // not JSON: keep the status line
  }
  // A proxy or a restarted server may answer 502/504 without our words.
  throw new ApiError(response.status, message);
}

export async function getJson(url) {
  return (await send('GET', url)).json();
}

export async function postJson(url, value) {
  const response = await send('POST', url, JSON.stringify(value), 'application/json');
  return response.status === 204 ? null : response.json();
}

export async function postFile(url, file) {
  return (await send('POST', url, file, file.type || 'application/octet-stream')).json();
}

export async function getBlob(url) {
  try {
    return await (await send('GET', url)).blob();
  } catch (error) {
    if (error instanceof ApiError) throw error;
    throw new ApiError(0, GONE);  // the body broke off
  }
}

// Fire and forget, also while the page unloads.
export function remove(url) {
  fetch(url, { method: 'DELETE', keepalive: true }).catch(() => {});
}
