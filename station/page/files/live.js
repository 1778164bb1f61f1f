// What the station tells of itself while it happens, and whether it tells anything at all.
//
// Read with fetch rather than EventSource, which hides the comment lines: a connection that is silent for longer than
// those take is lost, though nothing has closed it.

const SILENCE = 6000;  // the server sends something every 2 s
const PATIENCE = 2500; // for an answer to begin; when none has, twice as long
const MOST_PATIENCE = 5000;
const AGAIN = 400;         // between attempts: the truth is to be there a second after the server is
const OUT_OF_SIGHT = 5000; // a browser has six connections to a server for all of its pages
const LONGEST = 1 << 24;

const listeners = {
    slots: new Set(),
    run: new Set(),
    connection: new Set()
};

export const live = {
    slots: null,         // the newest of /api/slots
    clock: 0,            // how far the station's clock is ahead of this one, in ms
    state: 'connecting', // or 'live', 'lost', 'token'
    since: null,         // when it was lost
    heard: 0,            // how often slots have come
};

export function listen(kind, heard) {
    listeners[kind].add(heard);
    return () => listeners[kind].delete(heard);
}

function tell(kind, value) {
    for (const heard of [...listeners[kind]])
        heard(value);
}

function become(state) {
    if (live.state === state)
        return;
    live.state = state;
    if (state === 'lost')
        live.since = new Date();
    tell('connection', live);
}

function take(kind, data) {
    let value;
    try {
        value = JSON.parse(data);
    } catch {
        return;
    }
    if (kind === 'run') {
        tell('run', value);
        return;
    }
    if (kind !== 'slots' || !Array.isArray(value?.slots))
        return;
    // A page of another version than the station's is not to be trusted with its answers.
    if (live.slots && live.slots.version !== value.version)
        location.reload();
    live.slots = value;
    live.clock = (Date.parse(value.time) || Date.now()) - Date.now();
    ++live.heard;
    become('live');
    tell('slots', value);
}

// Lines of a stream, gathered to events.
function parser() {
    let rest = '', kind = '', data = [];
    return text => {
        rest += text;
        if (rest.length > LONGEST)
            throw new Error('an endless line');
        const lines = rest.split(/\r\n|\n|\r(?!$)/);
        rest = lines.pop();
        for (const line of lines) {
            if (line === '') {
                if (data.length)
                    take(kind, data.join('\n'));
                kind = '';
                data = [];
            } else if (line.startsWith('event:')) {
                kind = line.slice(6).trim();
            } else if (line.startsWith('data:')) {
                data.push(line.slice(line[5] === ' ' ? 6 : 5));
            }
        }
    };
}

let running = null; // what ends the present connection

let patience = PATIENCE;

async function read() {
    const ends = new AbortController();
    running = ends;
    let watch = setTimeout(() => {
        patience = Math.min(2 * patience, MOST_PATIENCE);
        ends.abort();
    }, patience);
    try {
        const response = await fetch('/api/events', {
            credentials: 'same-origin',
            cache: 'no-store',
            signal: ends.signal,
            headers: { Accept: 'text/event-stream' }
        });
        if (response.status === 401) {
            become('token');
            return 5000;
        }
        if (!response.ok)
            return response.status === 503 || response.status === 429 ? 2000 + Math.random() * 2000 : 1000;
        patience = PATIENCE;
        const reader = response.body.pipeThrough(new TextDecoderStream()).getReader();
        const parse = parser();
        for (;;) {
            clearTimeout(watch);
            watch = setTimeout(() => ends.abort(), SILENCE);
            const { value, done } = await reader.read();
            if (done)
                return AGAIN;
            parse(value);
        }
    } catch {
        return AGAIN;
    } finally {
        clearTimeout(watch);
        ends.abort();
        running = null;
    }
}

// Waits, and less when the page is seen again or the network is back.
let wake = () => {};
function pause(milliseconds) {
    return new Promise(done => {
        const timer = setTimeout(done, milliseconds);
        wake = () => {
            clearTimeout(timer);
            done();
        };
    });
}

// Seen again: what is shown may be an hour old until the station has spoken.
function returned() {
    if (!running && live.state === 'live')
        become('connecting');
    wake();
}

export async function connect() {
    let hiding = 0;
    document.addEventListener('visibilitychange', () => {
        clearTimeout(hiding);
        if (document.hidden)
            hiding = setTimeout(() => running?.abort(), OUT_OF_SIGHT);
        else
            returned();
    });
    window.addEventListener('pageshow', () => returned());
    window.addEventListener('online', () => wake());
    window.addEventListener('offline', () => running?.abort());
    for (;;) {
        const again = await read();
        if (live.state !== 'token' && !document.hidden)
            become('lost');
        do
            await pause(document.hidden ? 3600000 : again);
        while (document.hidden);
    }
}
