// The server: requests, the stream of events, and the token that both may need.

const tokenKey = 'ravo-token';
const retryMilliseconds = 1500;

export function storedToken() { return sessionStorage.getItem(tokenKey) || ''; }
export function storeToken(token) { sessionStorage.setItem(tokenKey, token); }

function headersOf(isChange) {
  const headers = {};
  if (storedToken()) headers.Authorization = 'Bearer ' + storedToken();
  if (isChange) Object.assign(headers, { 'Content-Type': 'application/json', Prefer: 'respond-async' });
  return headers;
}

export class ServerError extends Error {
  constructor(status, error) {
    super(error.where ? `${error.where}: ${error.problem}` : error.problem);
    this.status = status;
    this.cure = error.cure || '';
  }
}

async function failureOf(answer) {
  let error = { problem: `The server answers ${answer.status}.` };
  try { error = (await answer.json()).error; } catch { /* not an answer of this server */ }
  return new ServerError(answer.status, error);
}

export async function get(path) {
  const answer = await fetch(path, { headers: headersOf(false), cache: 'no-store' });
  if (!answer.ok) throw await failureOf(answer);
  return answer.json();
}

export async function post(path, body) {
  const answer = await fetch(path, { method: 'POST', headers: headersOf(true), body: JSON.stringify(body) });
  if (!answer.ok) throw await failureOf(answer);
  return answer.json();
}

// Calls `on[event](data)` for every event, `on.lost(error)` whenever the stream ends. Reconnects by
// itself, after awaiting the result of `on.lost`.
export async function follow(on) {
  for (;;) {
    let failure = null;
    try {
      await readEvents(on);
    } catch (error) {
      failure = error;
    }
    await on.lost(failure);
    await new Promise(resolve => setTimeout(resolve, retryMilliseconds));
  }
}

async function readEvents(on) {
  const answer = await fetch('/api/events', { headers: headersOf(false), cache: 'no-store' });
  if (!answer.ok) throw await failureOf(answer);
  const reader = answer.body.pipeThrough(new TextDecoderStream()).getReader();
  let text = '';
  for (;;) {
    const { value, done } = await reader.read();
    if (done) return;
    text += value;
    let end;
    while ((end = text.indexOf('\n\n')) >= 0) {
      const [event, data] = text.slice(0, end).split('\n');
      text = text.slice(end + 2);
      const name = event.slice('event: '.length);
      if (on[name]) on[name](JSON.parse(data.slice('data: '.length)));
    }
  }
}
