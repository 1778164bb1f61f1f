// Asking the server.

export class Refused extends Error {
    constructor(status, message) {
        super(message);
        this.status = status;
    }
}

async function ask(path, options) {
    let response;
    try {
        response = await fetch(path, { credentials: 'same-origin', cache: 'no-cache', ...options });
    } catch (problem) {
        if (problem.name === 'AbortError')
            throw problem;
        throw new Refused(0, 'The station does not answer.');
    }
    let body = null;
    try {
        body = await response.json();
    } catch (problem) {
        if (problem.name === 'AbortError')
            throw problem;
    }
    if (!response.ok)
        throw new Refused(response.status,
            typeof body?.error === 'string' ? body.error : `The station refused this (${response.status}).`);
    if (body === null)
        throw new Refused(response.status, 'The station\u2019s answer cannot be read.');
    return body;
}

// `parameters` that are empty are not sent.
export function query(parameters) {
    const all = new URLSearchParams();
    for (const [name, value] of Object.entries(parameters)) {
        if (value !== '' && value !== null && value !== undefined)
            all.set(name, String(value));
    }
    const text = all.toString();
    return text ? '?' + text : '';
}

export function get(path, parameters = {}, signal = undefined) { return ask(path + query(parameters), { signal }); }

export function answer(slot, question, text) {
    return ask(`/api/slots/${encode(slot)}/answer`, {
        method: 'POST',
        headers: { 'Content-Type': 'application/json' },
        body: JSON.stringify({ question, answer: text }),
        signal: AbortSignal.timeout(10000),
    }).catch(problem => {
        throw problem.name === 'TimeoutError' || problem.name === 'AbortError'
            ? new Refused(0, 'The station does not answer.')
            : problem;
    });
}

// As encodeURIComponent, which throws at half of a surrogate pair.
export function encode(text) { return encodeURIComponent(String(text).replace(/\p{Cs}/gu, '\ufffd')); }

// The same backwards: what is no such text stands for itself.
export function decode(text) {
    try {
        return decodeURIComponent(text);
    } catch {
        return text;
    }
}
