// Which view the address names, and what stands around all of them.
import {connect, listen, live} from './live.js';
import {decode, encode} from './api.js';
import {el, put, say} from './dom.js';
import {plain} from './text.js';
import {clock} from './time.js';
import {lineView} from './line.js';
import {slotView} from './slot.js';
import {unitView, compareView} from './unit.js';
import {runView} from './run.js';
import {yieldView} from './yield.js';

const content = document.getElementById('content');
let view = null;

// #/unit/SERIAL?verdict=fail: parts between slashes, each one escaped, and what follows the question mark.
function route() {
    const [path, asked = ''] = location.hash.replace(/^#\/?/, '').split(/\?(.*)/s);
    const [name = '', ...rest] = path.split('/');
    const parts = rest.map(decode);
    const parameters = new URLSearchParams(asked);
    if (name === '' || name === 'line')
        return ['line', root => lineView(root)];
    if (name === 'slot' && parts[0])
        return ['line', root => slotView(root, parts[0])];
    if (name === 'unit' && parts[1] === 'compare' && parts[3])
        return ['unit', root => compareView(root, parts[0], parts[2], parts[3])];
    if (name === 'unit')
        return ['unit', root => unitView(root, parts[0] ?? '', parameters)];
    if (name === 'run' && parts[0])
        return ['unit', root => runView(root, parts[0], parts[1])];
    if (name === 'yield')
        return ['yield', root => yieldView(root, parameters)];
    return [
        '',
        root => {
            root.append(el('h1', { tabindex: -1 }, 'There is no such view'),
                el('p', {}, el('a', { href: '#/' }, 'To the line')));
            return { title: 'No such view' };
        }
    ];
}

// The same address with other parameters is the same view: it may take them in place.
function go(first) {
    const [name, make] = route();
    const path = location.hash.split('?')[0];
    if (view?.path === path && view.changed) {
        view.changed(new URLSearchParams(location.hash.split(/\?(.*)/s)[1] ?? ''));
        return;
    }
    view?.leave?.();
    const root = el('div', { class: 'view' });
    content.replaceChildren(root);
    document.body.dataset.view = name;
    for (const link of document.querySelectorAll('nav a')) {
        if (link.dataset.view === name)
            link.setAttribute('aria-current', 'page');
        else
            link.removeAttribute('aria-current');
    }
    view = make(root);
    view.path = path;
    entitle();
    if (!first) {
        window.scrollTo(0, 0);
        content.querySelector('h1')?.focus({ preventScroll: true });
    }
}

function entitle() {
    const station = live.slots?.station;
    document.title = (view?.title ?? 'Line') + (station ? ` \u2013 ${plain(station, 60)}` : '');
}

function showStation(all) {
    put(document.getElementById('station'), all.station, { limit: 60 });
    entitle();
    const asking = all.slots.filter(slot => slot.question).length;
    const badge = document.getElementById('asking');
    badge.hidden = asking === 0;
    say(badge.firstChild, String(asking));
    say(badge.lastChild, asking === 1 ? ' question' : ' questions');
    const tested = all.slots.reduce((sum, slot) => sum + slot.tested, 0);
    const passed = all.slots.reduce((sum, slot) => sum + slot.passed, 0);
    const words =
        all.line ? [`${all.slots.length} slots`, `${tested} tested`, `${passed} passed`] : ['No line, records only'];
    if (all.plan)
        words.unshift(plain(all.plan.name, 80));
    if (all.forwarding?.waiting)
        words.push(`${all.forwarding.waiting} runs wait for the database${
            all.forwarding.problem ? `: ${plain(all.forwarding.problem)}` : ''}`);
    else if (all.forwarding?.problem)
        words.push(plain(all.forwarding.problem));
    const status = document.getElementById('status');
    const trouble = all.not_kept ? `No more units are taken: ${plain(all.not_kept)}`
        : all.ends ? 'The line is ending: no more units are taken.'
                   : '';
    status.classList.toggle('trouble', Boolean(trouble || all.forwarding?.problem));
    say(status, [...(trouble ? [trouble] : []), ...words].join(' \u00b7 '));
}

function showConnection() {
    const place = document.getElementById('connection');
    place.dataset.state = live.state;
    document.body.dataset.connection = live.state;
    const words = {
        connecting: 'Connecting',
        live: 'Live',
        lost: `No connection since ${clock(live.since)}`,
        token: 'Not let in: open the address with the token that the station was started with',
    };
    say(document.getElementById('connection-text'), words[live.state]);
    say(document.getElementById('connection-more'),
        live.state === 'lost' && live.heard ? ': what is shown is old' : '');
    const urgent = live.state === 'lost' || live.state === 'token';
    place.setAttribute('role', urgent ? 'alert' : 'status');
}

document.getElementById('find').addEventListener('submit', event => {
    event.preventDefault();
    const field = document.getElementById('serial');
    const serial = field.value.trim();
    if (serial) {
        location.hash = `#/unit/${encode(serial)}`;
        field.value = '';
    }
});
document.getElementById('skip').addEventListener('click', event => {
    event.preventDefault();
    content.focus();
});
window.addEventListener('hashchange', () => go(false));
listen('slots', showStation);
listen('connection', showConnection);
showConnection();
go(true);
connect();
