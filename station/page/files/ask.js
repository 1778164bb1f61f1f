// The questions that slots ask, and who the keys go to.
//
// Several slots may ask at once. One of their questions has the keys, the one that has waited longest unless a person
// chose another by going into it, and it says so: y and n answer it, Enter says that something is done, what is typed
// goes to its field. Keys that come as fast as no person types and end with Enter are a scanner's: they go to the field
// that waits and never press anything.
import {announce, el, notice, shape} from './dom.js';
import {answer, encode} from './api.js';
import {listen} from './live.js';
import {plain, shown} from './text.js';

const SCANNER = 80; // ms between keys: a scanner is faster, a person slower
const BURST = 3;    // keys that make a scan
const APART = 500;  // ms without a key before y or n is one
const CALM = 400;   // ms until a question that has just got the keys takes one: the last key was meant for another

let count = 0;
const mark = (slot, question) => `${slot}\n${question.id}`;

// One slot's question with its controls.
class Box {
    constructor(slot, question) {
        this.slot = slot;
        this.question = question;
        this.mark = mark(slot, question);
        this.sent = false;
        const id = `question${++count}`;
        this.field = null;
        this.message = el('p', { class: 'message', role: 'alert' });
        this.chip = el('p', { class: 'chip', 'aria-hidden': 'true' });
        this.controls = el('form', {
            class: 'controls',
            novalidate: true,
            submit: event => {
                event.preventDefault();
                this.submit();
            }
        },
            this.makeControls(id));
        this.element =
            el('div', { class: `question ${question.kind}`, role: 'group', tabindex: -1, 'aria-labelledby': id },
                el('p', { class: 'asked', id }, shown(question.text, { lines: true })), this.controls, this.message,
                this.chip);
        this.element.addEventListener('focusin', () => questions.choose(this));
        this.element.addEventListener('pointerdown', () => questions.choose(this));
    }

    makeControls(id) {
        const { kind, pattern } = this.question;
        if (kind === 'ask')
            return [this.button('Yes', 'y', 'pass', 'yes', id), this.button('No', 'n', 'fail', 'no', id)];
        if (kind === 'tell')
            return [this.button('Done', '\u21b5', 'pass', 'done', id)];
        this.field = el('input', {
            type: 'text',
            'aria-labelledby': id,
            autocomplete: 'off',
            autocapitalize: 'off',
            spellcheck: 'false',
            maxlength: 1024,
            placeholder: 'Scan or type',
            'aria-describedby': pattern ? `${id}p` : null
        });
        return [
            this.field, el('button', { type: 'submit', 'aria-describedby': id }, 'Enter'),
            pattern ? el('p', { class: 'pattern', id: `${id}p` }, 'has to fit ', shown(pattern, { limit: 200 })) : null
        ];
    }

    button(text, key, kind, value, id) {
        return el('button', { type: 'button', 'aria-describedby': id, click: () => this.send(value) }, shape(kind),
            el('span', {}, text), el('kbd', {}, key));
    }

    submit() {
        if (this.field)
            this.send(this.field.value);
        else if (this.question.kind === 'tell')
            this.send('done');
    }

    press(key) {
        if (this.question.kind === 'ask' && (key === 'y' || key === 'n'))
            this.send(key === 'y' ? 'yes' : 'no');
    }

    async send(text) {
        if (this.sent)
            return;
        this.be(true);
        this.message.textContent = '';
        questions.settle();
        try {
            await answer(this.slot, this.question.id, text);
            this.message.replaceChildren('Answered: ', shown(text, { limit: 60 }));
        } catch (problem) {
            if (problem.status === 409) {
                this.message.textContent = 'This question is not open any more.';
                return;
            }
            this.be(false);
            this.message.replaceChildren(shown(problem.message, { limit: 300 }));
            questions.settle();
            questions.choose(this, true);
            this.field?.select();
        }
    }

    be(sent) {
        this.sent = sent;
        this.element.classList.toggle('sent', sent);
        for (const control of this.controls.querySelectorAll('button, input'))
            control.disabled = sent;
    }
}

class Questions {
    constructor() {
        this.boxes = new Map(); // by the place that a box is in
        this.order = new Map(); // when each open question was first heard of
        this.active = null;
        this.ready = false;
        this.burst = '';
        this.last = -Infinity;
        this.pressing = 0;
        this.calming = 0;
    }

    // What is open, in the order in which it was asked.
    hear(all) {
        const open = all.slots.filter(slot => slot.question).map(slot => mark(slot.name, slot.question));
        for (const known of [...this.order.keys()]) {
            if (!open.includes(known))
                this.order.delete(known);
        }
        for (const each of open) {
            if (!this.order.has(each)) {
                this.order.set(each, ++count);
                const slot = all.slots.find(one => one.question && mark(one.name, one.question) === each);
                announce(`Slot ${plain(slot.name, 40)} asks: ${plain(slot.question.text)}`);
            }
        }
    }

    // Has the place show the slot's question, or none.
    mount(place, slot) {
        const box = this.boxes.get(place);
        const asked = slot?.question ?? null;
        if (box && asked && box.mark === mark(slot.name, asked))
            return;
        if (box) {
            this.boxes.delete(place);
            box.element.remove();
        }
        if (asked) {
            const made = new Box(slot.name, asked);
            this.boxes.set(place, made);
            place.append(made.element);
        }
    }

    open() {
        for (const place of [...this.boxes.keys()]) {
            if (!place.isConnected)
                this.boxes.delete(place);
        }
        return [...this.boxes.values()]
            .filter(box => !box.sent)
            .sort((a, b) => (this.order.get(a.mark) ?? 0) - (this.order.get(b.mark) ?? 0));
    }

    // To be called after questions came or went.
    settle() {
        const open = this.open();
        if (!open.includes(this.active))
            this.choose(open[0] ?? null);
        this.mark(open);
    }

    scanned(open = this.open()) { return this.active?.field ? this.active : open.find(box => box.field) ?? null; }

    mark(open = this.open()) {
        const scanned = this.scanned(open);
        for (const box of this.boxes.values()) {
            const has = box === this.active && this.ready && !box.sent;
            box.element.classList.toggle('keys', has);
            box.element.classList.toggle('scans', box === scanned);
            box.chip.textContent = has ? 'Keys go here' : box === scanned && !box.sent ? 'A scan goes here' : '';
        }
        const hint = document.getElementById('keys');
        const kind = this.ready ? this.active?.question.kind : null;
        const where = kind ? `Slot ${plain(this.active.slot, 40)}: ` : '';
        const keys = { ask: 'y = yes, n = no', tell: 'Enter = done', input: 'scan, or type and Enter' };
        hint.textContent = kind ? where + keys[kind] : '';
    }

    choose(box, at_once = false) {
        if (this.active === box && !at_once)
            return;
        this.active = box;
        this.ready = false;
        clearTimeout(this.calming);
        this.mark();
        if (!box)
            return;
        const begin = () => {
            this.ready = true;
            this.focus(box);
            this.mark();
        };
        if (at_once || box.element.contains(document.activeElement))
            begin();
        else
            this.calming = setTimeout(begin, CALM);
    }

    // Never away from where a person is at work.
    focus(box) {
        const at = document.activeElement;
        if (at && at !== document.body && !at.matches('h1, main') && !at.closest('.question'))
            return;
        if (box.element.contains(at) && at !== box.element)
            return;
        if (!box.field) {
            box.element.focus({ preventScroll: false });
            return;
        }
        // A scan that has begun before its field had the keys.
        if (this.burst && performance.now() - this.last < SCANNER)
            box.field.value += this.burst;
        this.burst = '';
        box.field.focus();
    }

    key(event) {
        if (event.isComposing || event.ctrlKey || event.altKey || event.metaKey)
            return;
        if (event.target.closest?.('input, select, textarea'))
            return;
        const apart = event.timeStamp - this.last;
        if (event.key.length === 1)
            this.character(event, apart);
        else if (event.key === 'Enter')
            this.enter(event, apart);
    }

    character(event, apart) {
        if (event.repeat)
            return;
        this.last = event.timeStamp;
        clearTimeout(this.pressing);
        this.burst = apart > SCANNER ? event.key : this.burst + event.key;
        const begins = this.burst.length === 1;
        const box = this.ready ? this.active : null;
        if (event.key === ' ') {
            if (!begins)
                event.preventDefault(); // a scanned blank presses no button
            return;
        }
        if (box?.field && begins) {
            this.burst = '';
            box.field.focus(); // and the key goes on into it
        } else if (box && begins && apart > APART) {
            const key = event.key.toLowerCase();
            this.pressing = setTimeout(() => box === this.active && box.press(key), SCANNER);
        }
    }

    enter(event, apart) {
        const burst = this.burst;
        this.burst = '';
        clearTimeout(this.pressing);
        if (apart <= SCANNER) {
            event.preventDefault();
            if (burst.length >= BURST)
                this.scan(burst);
        } else if (this.ready && this.active?.question.kind === 'tell' &&
            !event.target.closest?.('a, button, summary')) {
            event.preventDefault();
            if (!event.repeat)
                this.active.submit();
        }
    }

    scan(text) {
        const open = this.open();
        const box = this.scanned(open);
        if (box) {
            box.field.value = text;
            box.submit();
        } else if (open.length) {
            notice(`Scanned ${plain(text, 60)}: no slot waits for an input.`);
        } else {
            location.hash = `#/unit/${encode(text)}`;
        }
    }
}

export const questions = new Questions();
listen('slots', all => questions.hear(all));
document.addEventListener('keydown', event => questions.key(event), true);
// Whoever types into another field has the keys there.
document.addEventListener('focusin', event => {
    document.body.classList.toggle(
        'typing', Boolean(event.target.closest?.('input, select, textarea')) && !event.target.closest('.question'));
});
document.addEventListener('focusout', () => document.body.classList.remove('typing'));
