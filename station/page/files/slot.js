// One slot, with all that its tile has no room for, and the phone in it as a person would see it.
import {el, put, say, shape, word} from './dom.js';
import {encode} from './api.js';
import {listen, live} from './live.js';
import {plain, shown} from './text.js';
import {questions} from './ask.js';
import {condition} from './line.js';
import {elapsed, moment} from './time.js';
import {Phone} from './phone.js';

const WORDS = {
    waits: 'Waits for a unit',
    tests: 'Testing',
    failing: 'Testing, has failed',
    refused: 'Refused',
    asks: 'Asks'
};

export function slotView(root, name) {
    const title = el('h1', { tabindex: -1 }, 'Slot ', shown(name, { limit: 60 }));
    const state = el('p', { class: 'slot-state' });
    const facts = el('dl', { class: 'facts' });
    const asks = el('div', { class: 'asks' });
    const bar = el('span', {});
    const progress =
        el('div', { class: 'progress', role: 'progressbar', 'aria-label': 'Steps', 'aria-valuemin': 0 }, bar);
    const failing = el('p', { class: 'failing' }), cause = el('p', { class: 'cause' });
    const why = el('section', { class: 'why fail' }, el('h2', {}, 'First failing step'), failing, cause);
    const nothing = el('p', { class: 'note', hidden: true }, 'The line has no such slot.');
    const phone = new Phone(name);
    const body = el('div', { class: 'slot-body' }, el('div', { class: 'slot-side' }, state, progress, asks, why, facts),
        phone.element);
    root.classList.add('slot');
    root.append(el('p', { class: 'back' }, el('a', { href: '#/' }, '\u2190 All slots')), title, nothing, body);
    let key = '';

    function show() {
        const slot = live.slots?.slots.find(one => one.name === name);
        nothing.hidden = Boolean(slot) || !live.slots;
        body.hidden = !slot;
        if (!slot)
            return;
        const now = condition(slot);
        body.dataset.now = now;
        const words = slot.phase === 'shows' ? word(slot.verdict) : WORDS[now];
        if (key !== now + words) {
            key = now + words;
            state.replaceChildren(...(slot.phase === 'shows'       ? [shape(now)]
                                          : slot.phase === 'tests' ? [shape(slot.question   ? 'asks'
                                                                             : slot.failing ? 'fail'
                                                                                            : 'running')]
                                                                   : []),
                el('span', {}, words));
        }
        const share = slot.steps ? Math.min(1, slot.done / slot.steps) : 0;
        bar.style.transform = `scaleX(${share})`;
        progress.setAttribute('aria-valuemax', slot.steps);
        progress.setAttribute('aria-valuenow', slot.done);
        why.hidden = !slot.failing && !slot.cause?.trim();
        put(failing, slot.failing || 'No step', { limit: 1000 });
        put(cause, slot.cause?.trim() ?? '', { lines: true, limit: 20000 });
        showFacts(slot);
        questions.mount(asks, slot);
        questions.settle();
        phone.show(slot);
    }

    const values = {};
    const fact = (title, id) => {
        values[id] = el('dd');
        return el('div', {}, el('dt', {}, title), values[id]);
    };
    facts.append(fact('Unit', 'unit'), fact('Step', 'step'), fact('Steps', 'steps'), fact('Started', 'started'),
        fact('Passed here', 'passed'), fact('Port', 'port'), fact('Run', 'run'));
    let links = '';

    function showFacts(slot) {
        put(values.step, slot.phase === 'tests' ? slot.step : '', { limit: 1000 });
        say(values.steps, `${slot.done} of ${slot.steps}`);
        say(values.started,
            slot.started ? `${moment(slot.started)}${
                               slot.phase === 'tests'
                                   ? `, ${elapsed(Date.now() + live.clock - Date.parse(slot.started))} ago`
                                   : ''}`
                         : '\u2013');
        say(values.passed, `${slot.passed} of ${slot.tested}`);
        put(values.port, slot.port, { limit: 1000 });
        const linked = `${slot.run}\n${slot.unit}\n${slot.unit_source}`;
        if (links !== linked) {
            links = linked;
            values.run.replaceChildren(
                slot.run ? el('a', { href: `#/run/${encode(slot.run)}` }, plain(slot.run, 60)) : '\u2013');
            values.unit.replaceChildren(slot.unit
                    ? el('a', { href: `#/unit/${encode(slot.unit)}` }, shown(slot.unit, { limit: 10000 }))
                    : '\u2013',
                slot.unit && slot.unit_source === 'port' ? ' (the port\u2019s name)' : '');
        }
    }

    const stop = listen('slots', show);
    show();
    return {
        title: `Slot ${plain(name, 40)}`,
        leave: () => {
            stop();
            phone.leave();
        }
    };
}
