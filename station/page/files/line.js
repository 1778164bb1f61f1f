// The line at a glance: a tile for each slot.
import {announce, el, put, say, shape, word} from './dom.js';
import {live, listen} from './live.js';
import {plain} from './text.js';
import {questions} from './ask.js';
import {elapsed} from './time.js';

const NARROW = 700;       // pixels: below, the page scrolls
const LONGEST_TEXT = 400; // of a tile; the slot's own view has all

// Tiles as large as they can be, of about this shape.
const SHAPE = 1.2;

function columns(count, width, height) {
    if (width < NARROW)
        return count <= 3 ? 1 : 2;
    let best = 1, most = 0;
    for (let across = 1; across <= count; ++across) {
        const size = Math.min(width / across / SHAPE, height / Math.ceil(count / across));
        if (size > most + 0.5) {
            best = across;
            most = size;
        }
    }
    return best;
}

// What a slot is about, in one word: what the colour is chosen by, and never without the word.
export function condition(slot) {
    if (slot.question)
        return 'asks';
    if (slot.phase === 'shows')
        return slot.verdict ?? 'error';
    if (slot.phase === 'tests')
        return slot.failing ? 'failing' : 'tests';
    return slot.phase === 'refused' ? 'refused' : 'waits';
}

class Tile {
    constructor(name) {
        this.name = name;
        this.number = el('span', { class: 'number' });
        this.unit = el('span', { class: 'unit' });
        this.sign = el('span', { class: 'sign' });
        this.word = el('span', { class: 'word' });
        this.done = el('span', { class: 'done' });
        this.time = el('span', { class: 'time' });
        this.bar = el('span', {});
        this.progress = el('div', { class: 'progress', role: 'progressbar', 'aria-valuemin': 0 }, this.bar);
        this.step = el('p', { class: 'step' });
        this.failing = el('p', { class: 'failing' });
        this.cause = el('p', { class: 'cause' });
        this.counts = el('span', { class: 'counts' });
        this.asks = el('div', { class: 'asks' });
        this.link = el('a', { href: `#/slot/${encodeURIComponent(name)}` }, this.number, this.unit);
        this.element = el('li', { class: 'tile' },
            el('div', { class: 'inner' }, el('h2', {}, this.link, this.counts),
                el('div', { class: 'state' }, this.sign, this.word),
                el('div', { class: 'going' }, el('p', { class: 'how-far' }, this.done, this.time), this.progress,
                    this.step),
                this.asks, el('div', { class: 'trouble' }, this.failing, this.cause)));
    }

    show(slot) {
        const now = condition(slot);
        put(this.number, slot.name, { limit: 40 });
        put(this.unit, slot.phase === 'waits' || slot.phase === 'refused' ? '' : slot.unit, { limit: LONGEST_TEXT });
        this.link.setAttribute(
            'aria-label', `Slot ${plain(slot.name, 40)}${slot.unit ? `, unit ${plain(slot.unit, 60)}` : ''}`);
        say(this.counts, slot.tested ? `\u2713 ${slot.passed}/${slot.tested}` : '');
        this.counts.title = slot.tested ? `${slot.passed} of ${slot.tested} passed here` : '';
        if (this.element.dataset.now !== now || this.phase !== slot.phase) {
            this.element.dataset.now = now;
            this.element.dataset.phase = slot.phase;
            const kind = slot.phase === 'shows' ? now : null;
            this.sign.replaceChildren(...(kind ? [shape(kind)] : []));
            say(this.word,
                slot.phase === 'shows'         ? word(slot.verdict)
                    : slot.phase === 'waits'   ? 'No unit'
                    : slot.phase === 'refused' ? 'Refused'
                                               : '');
            this.phase = slot.phase;
        }
        const share = slot.steps ? Math.min(1, slot.done / slot.steps) : 0;
        this.bar.style.transform = `scaleX(${share})`;
        this.progress.setAttribute('aria-valuemax', slot.steps);
        this.progress.setAttribute('aria-valuenow', slot.done);
        this.progress.setAttribute('aria-label', `Steps of slot ${plain(slot.name, 40)}`);
        say(this.done, slot.phase === 'tests' ? `${slot.done}/${slot.steps}` : '');
        put(this.step, slot.phase === 'tests' ? slot.step : '', { limit: LONGEST_TEXT });
        if (this.failed !== slot.failing) {
            this.failed = slot.failing;
            put(this.failing, slot.failing, { limit: LONGEST_TEXT });
        }
        put(this.cause, slot.cause?.trim() ?? '', { limit: LONGEST_TEXT });
        this.tick(slot);
        questions.mount(this.asks, slot);
    }

    tick(slot) {
        say(this.time,
            slot.phase === 'tests' && slot.started ? elapsed(Date.now() + live.clock - Date.parse(slot.started)) : '');
    }
}

export function lineView(root) {
    const grid = el('ul', { class: 'tiles' });
    const nothing = el('div', { class: 'note' });
    root.append(el('h1', { class: 'unseen', tabindex: -1 }, 'The line'), grid, nothing);
    const tiles = new Map();

    function lay() {
        const across = columns(Math.max(1, tiles.size), grid.clientWidth, grid.clientHeight || 800);
        grid.style.setProperty('--across', across);
        grid.style.setProperty('--down', Math.ceil(tiles.size / across));
    }

    function show() {
        const all = live.slots;
        if (!all)
            return;
        grid.hidden = all.slots.length === 0;
        nothing.hidden = !grid.hidden;
        if (grid.hidden)
            nothing.replaceChildren(...empty(all));
        const names = new Set(all.slots.map(slot => slot.name));
        const known = tiles.size;
        let gone = false;
        for (const [name, tile] of tiles) {
            if (!names.has(name)) {
                tile.element.remove();
                tiles.delete(name);
                gone = true;
            }
        }
        all.slots.forEach((slot, index) => {
            let tile = tiles.get(slot.name);
            if (!tile)
                tiles.set(slot.name, tile = new Tile(slot.name));
            if (grid.children[index] !== tile.element)
                grid.insertBefore(tile.element, grid.children[index] ?? null);
            tile.show(slot);
        });
        if (gone || tiles.size !== known)
            lay();
        questions.settle();
    }

    const size = new ResizeObserver(lay);
    size.observe(grid);
    const stop = listen('slots', show);
    const clock = setInterval(
        () => live.state === 'live' && live.slots?.slots.forEach(slot => tiles.get(slot.name)?.tick(slot)), 1000);
    show();
    return {
        title: 'Line',
        takesKeys: true,
        leave: () => {
            stop();
            size.disconnect();
            clearInterval(clock);
        }
    };
}

function empty(all) {
    if (all.line)
        return [el('p', {}, 'No port has appeared yet. A slot shows here for each.')];
    return [
        el('p', {}, 'No line runs here: this is the page of the records.'),
        el('p', {}, el('a', { href: '#/unit' }, 'Units and their runs'), ' \u00b7 ',
            el('a', { href: '#/yield' }, 'Yield'))
    ];
}

// Verdicts are told to those who cannot look, wherever they are on the page.
const told = new Map();
listen('slots', all => {
    for (const slot of all.slots) {
        const key = slot.phase === 'shows' ? `${slot.run}` : '';
        const before = told.get(slot.name);
        told.set(slot.name, key);
        if (key && before !== undefined && before !== key)
            announce(`Slot ${plain(slot.name, 40)}, unit ${plain(slot.unit, 60)}: ${word(slot.verdict)}${
                         slot.failing ? `, ${plain(slot.failing, 80)}` : ''}`,
                slot.verdict !== 'pass');
    }
});
