// Elements, made without ever parsing a text for markup.
import {shown} from './text.js';

const SVG = 'http://www.w3.org/2000/svg';

// An address that came by way of data may lead to this page and its server's answers, and nowhere else.
function checked(name, value) {
    if (/^(on|style$|srcdoc$|src$)/i.test(name) || (name === 'href' && !/^(#|\/api\/)/.test(value)))
        throw new Error(`no attribute to be set: ${name}`);
    return String(value);
}

function fill(element, attributes, children) {
    for (const [name, value] of Object.entries(attributes)) {
        if (typeof value === 'function')
            element.addEventListener(name, value);
        else if (value !== false && value !== null && value !== undefined)
            element.setAttribute(name, checked(name, value === true ? '' : value));
    }
    element.append(...children.flat().filter(child => child !== null && child !== undefined && child !== false));
    return element;
}

// el('a', {class: 'x', href: '#/', click: function}, children...): children are elements, and strings that are this
// page's own words. What comes from elsewhere goes through shown().
export function el(tag, attributes = {}, ...children) {
    return fill(document.createElement(tag), attributes, children);
}

export function svg(tag, attributes = {}, ...children) {
    return fill(document.createElementNS(SVG, tag), attributes, children);
}

// Puts a text into an element, and does nothing when it is there already: what stays the same neither flickers nor
// loses a selection.
const inside = new WeakMap();
export function put(element, text, options = {}) {
    const all = String(text ?? '');
    if (inside.get(element) === all)
        return;
    inside.set(element, all);
    element.replaceChildren(...(all === '' ? [] : [shown(all, options)]));
}

// The same for the page's own words.
export function say(element, text) {
    if (element.textContent !== text)
        element.textContent = text;
}

// Ways to tell a verdict without its colour: a shape for each.
const SHAPES = {
    pass: ['M16 1.5a14.5 14.5 0 1 0 0 29a14.5 14.5 0 1 0 0-29z', 'M8.5 16.5l5.2 5.2L23.8 10.6'],
    fail: ['M10 1.5h12l8.5 8.5v12L22 30.5H10L1.5 22V10z', 'M10.4 10.4l11.2 11.2M21.6 10.4L10.4 21.6'],
    error: ['M16 2.5L31 29H1z', 'M16 11.5v8.5M16 24.2v.6'],
    aborted: ['M2.5 2.5h27v27h-27z', 'M9 16h14'],
    asks: ['M16 1.2L30.8 16L16 30.8L1.2 16z', 'M12.2 12.6a3.9 3.9 0 1 1 5.6 3.5c-1.4.8-1.8 1.5-1.8 2.9M16 23v.4'],
    running: ['M16 1.5a14.5 14.5 0 1 0 0 29a14.5 14.5 0 1 0 0-29z', 'M12.5 9.5v13l10.5-6.5z'],
};

export function shape(kind) {
    const [outline, sign] = SHAPES[kind] ?? SHAPES.error;
    return svg('svg', {
        class: `shape ${kind in SHAPES ? kind : 'error'}`,
        viewBox: '0 0 32 32',
        'aria-hidden': 'true',
        focusable: 'false'
    },
        svg('path', { class: 'outline', d: outline }), svg('path', { class: 'sign', d: sign }));
}

const WORDS = {
    pass: 'PASS',
    fail: 'FAIL',
    error: 'ERROR',
    aborted: 'ABORTED'
};

// A verdict's word; a run without one is running. What is none of them is told in its own letters.
export function word(verdict) { return verdict ? WORDS[verdict] ?? String(verdict).slice(0, 20) : 'RUNNING'; }

export function badge(verdict) {
    const kind = verdict ?? 'running';
    return el('span', { class: `verdict-badge ${kind in SHAPES ? kind : 'error'}` }, shape(kind),
        el('span', {}, word(verdict)));
}

export function announce(text, urgent = false) {
    const place = document.getElementById(urgent ? 'assertive' : 'polite');
    const line = el('p', {}, text);
    place.append(line);
    while (place.children.length > 8)
        place.firstChild.remove();
    setTimeout(() => line.remove(), 8000);
}

// A word to everybody, for a while.
let until = 0;
export function notice(text) {
    const place = document.getElementById('notice');
    place.textContent = text;
    announce(text);
    clearTimeout(until);
    until = setTimeout(() => { place.textContent = ''; }, 8000);
}
