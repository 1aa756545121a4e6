// The server: requests, the stream of events, and the token that both may need.

const tokenKey = 'ravo-token';
const retryMilliseconds = 1500;
const silenceMilliseconds = 5000; // the state comes every second
const orderMilliseconds = 10000;
const lookMilliseconds = 40000; // at a large folder or a long record

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

// The server's answer, unless it is a refusal; what the browser says of a server that is gone differs
// from one to the next.
async function ask(path, options) {
  let answer;
  try {
    answer = await fetch(path, { cache: 'no-store', ...options });
  } catch {
    throw new ServerError(0, { problem: 'The server does not answer.' });
  }
  if (!answer.ok) throw await failureOf(answer);
  return answer;
}

export async function get(path) {
  return (await ask(path, { headers: headersOf(false), signal: AbortSignal.timeout(lookMilliseconds) })).json();
}

export async function post(path, body) {
  const signal = AbortSignal.timeout(orderMilliseconds);
  return (await ask(path, { method: 'POST', headers: headersOf(true), body: JSON.stringify(body), signal })).json();
}

// Calls `on[event](data)` for every event, `on.lost(error)` whenever the stream ends or brings nothing
// any more: a machine that is switched off does not close it. Reconnects by itself, after awaiting
// the result of `on.lost`.
export async function follow(on) {
  for (;;) {
    let failure = null;
    const leave = new AbortController();
    let silence = 0;
    const heard = () => { clearTimeout(silence); silence = setTimeout(() => leave.abort(), silenceMilliseconds); };
    try {
      heard();
      await readEvents(on, leave.signal, heard);
    } catch (error) {
      failure = error;
    }
    clearTimeout(silence);
    await on.lost(failure);
    await new Promise(resolve => setTimeout(resolve, retryMilliseconds));
  }
}

async function readEvents(on, signal, heard) {
  const answer = await ask('/api/events', { headers: headersOf(false), signal });
  const reader = answer.body.pipeThrough(new TextDecoderStream()).getReader();
  let text = '';
  for (;;) {
    const { value, done } = await reader.read();
    if (done) return;
    heard();
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
