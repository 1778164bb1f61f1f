// The virtual phone in a slot, as a person would see it: its screen with the picture on it, and its lamp. What is drawn
// is told in words, too.
import {el, say, svg} from './dom.js';
import {encode, get} from './api.js';
import {plain} from './text.js';

const EVERY = 1000, AFTER_TROUBLE = 3000; // ms between looks
const WIDTH = 120, HEIGHT = 240, EDGE = 6;
const LAMPS = {
    red: '#ff3b30',
    green: '#2fd158',
    blue: '#3b82ff'
};
const NAMES = {
    FF0000: 'red',
    '00FF00': 'green',
    '0000FF': 'blue',
    FFFFFF: 'white',
    '000000': 'black',
    808080: 'grey',
    FFFF00: 'yellow',
    '00FFFF': 'cyan',
    FF00FF: 'magenta'
};

const whole = (value, most) => Number.isInteger(value) && value >= 0 && value <= most ? value : null;

// Of what the server has told, only what is as it should be.
function picture(told) {
    if (!told || !/^[0-9A-F]{6}$/.test(told.color))
        return null;
    return { color: told.color, margin: whole(told.margin, 100) ?? 0 };
}

export class Phone {
    constructor(name) {
        this.path = `/api/slots/${encode(name)}/screen`;
        const width = WIDTH - 2 * EDGE, height = HEIGHT - 2 * EDGE;
        this.glass = svg('rect', { class: 'dark', x: EDGE, y: EDGE, width, height, rx: 8, fill: '#000' });
        this.image = svg('rect', { x: EDGE, y: EDGE, width, height, fill: '#000' });
        this.light = svg('circle', { cx: WIDTH / 2, cy: EDGE + 8, r: 4, fill: '#000', stroke: '#666' });
        this.drawing = svg('svg',
            { class: 'glass', viewBox: `0 0 ${WIDTH} ${HEIGHT}`, role: 'img', 'aria-label': 'The phone' },
            svg('rect',
                { x: 0.5, y: 0.5, width: WIDTH - 1, height: HEIGHT - 1, rx: 13, fill: '#2a2f36', stroke: '#8a94a0' }),
            this.glass, this.image, this.light);
        this.words = { screen: el('dd'), picture: el('dd'), lamp: el('dd') };
        this.element = el('section', { class: 'phone', hidden: true }, el('h2', {}, 'The phone'), this.drawing,
            el('dl', { class: 'facts' }, Object.entries(this.words).map(([title,
                place]) => el('div', {}, el('dt', {}, title[0].toUpperCase() + title.slice(1)), place))));
        this.timer = 0;
        this.ends = new AbortController();
        this.here = false;
    }

    show(slot) {
        this.element.hidden = !slot.screen;
        const before = this.here;
        this.here = Boolean(slot.screen);
        if (this.here && !before)
            this.look();
    }

    async look() {
        clearTimeout(this.timer);
        if (!this.here || this.ends.signal.aborted)
            return;
        let pause = EVERY;
        if (!document.hidden) {
            try {
                this.draw(await get(this.path, {}, this.ends.signal));
            } catch (problem) {
                if (problem.name === 'AbortError')
                    return;
                this.draw(null);
                say(this.words.screen, plain(problem.message, 100));
                pause = AFTER_TROUBLE;
            }
        }
        clearTimeout(this.timer);
        this.timer = setTimeout(() => this.look(), pause);
    }

    draw(told) {
        const screen = told?.screen, lamp = told?.lamp, seen = picture(told?.picture);
        const on = screen?.on === true;
        const most = whole(screen?.max_brightness, 99999), brightness = whole(screen?.brightness, 99999),
              rate = whole(screen?.refresh_rate, 99999);
        say(this.words.screen,
            !screen ? 'not to be seen'
                    : (on ? 'on' : 'off') + (rate === null ? '' : `, ${rate} Hz`) +
                    (brightness === null ? '' : `, brightness ${brightness}${most === null ? '' : ` of ${most}`}`));
        const color = seen && (NAMES[seen.color] ? `${NAMES[seen.color]} (${seen.color})` : seen.color);
        say(this.words.picture, seen ? `${color}, margin ${seen.margin} %` : 'none');
        const lit = lamp?.on === true && lamp.color in LAMPS ? lamp.color : null;
        say(this.words.lamp,
            !lamp     ? 'not to be seen'
                : lit ? `${lit}, brightness ${whole(lamp.brightness, 99999) ?? '?'}`
                      : 'dark');
        this.light.setAttribute('fill', lit ? LAMPS[lit] : '#000');
        this.paint(on ? seen : null);
        this.drawing.setAttribute('aria-label',
            `The phone: screen ${this.words.screen.textContent}; picture ${this.words.picture.textContent}; lamp ${
                this.words.lamp.textContent}`);
    }

    // The margin is dark, as much on each side.
    paint(seen) {
        const share = seen ? Math.min(0.5, seen.margin / 100) : 0.5;
        const width = WIDTH - 2 * EDGE, height = HEIGHT - 2 * EDGE;
        this.image.setAttribute('x', EDGE + width * share);
        this.image.setAttribute('y', EDGE + height * share);
        this.image.setAttribute('width', width * (1 - 2 * share));
        this.image.setAttribute('height', height * (1 - 2 * share));
        this.image.setAttribute('fill', seen ? `#${seen.color}` : '#000');
    }

    leave() {
        this.ends.abort();
        clearTimeout(this.timer);
    }
}
