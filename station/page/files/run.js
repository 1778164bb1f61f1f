// One run: what was asked of the unit, what came, and why it is no pass.
import {badge, el, put, shape, word} from './dom.js';
import {encode, get} from './api.js';
import {dump, ofHex, ofText} from './bytes.js';
import {limitsBar, limitsText, value} from './limits.js';
import {listen, live} from './live.js';
import {moment, took, zone} from './time.js';
import {plain, shown} from './text.js';

const SHORT = 300; // characters of an answer in the table; its details have all
const EVERY = 700; // ms between looks at a run that goes on

export const unitAddress = run => `#/unit/${encode(run.unit)}`;

function fact(name, ...what) { return el('div', {}, el('dt', {}, name), el('dd', {}, ...what)); }

function head(run) {
    const first = run.steps.find(step => step.verdict !== 'pass');
    const length = run.ended ? Date.parse(run.ended) - Date.parse(run.started) : null;
    return [
        el('div', { class: 'verdict-head' }, badge(run.verdict),
            el('h1', { tabindex: -1 }, el('a', { href: unitAddress(run) }, shown(run.unit, { limit: 200 })))),
        run.verdict && run.verdict !== 'pass'
            ? el('div', { class: `why ${run.verdict}` },
                  el('p', { class: 'failing' }, run.failing ? shown(run.failing, { limit: 300 }) : 'No step failed'),
                  first?.cause || run.cause
                      ? el('p', { class: 'cause' }, shown(first?.cause || run.cause, { lines: true, limit: 4000 }))
                      : null,
                  first ? el('p', {},
                              el('a', { href: `#/run/${encode(run.id)}/${Number(first.number)}` },
                                  `Step ${Number(first.number)}`))
                        : null)
            : null,
        el('dl', { class: 'facts' },
            fact('Started', el('time', { datetime: plain(run.started) }, moment(run.started)), ` ${zone(run.started)}`),
            fact('Took', length === null ? 'still running' : took(length)),
            fact('Plan', shown(run.plan, { limit: 200 }), ' ',
                el('span', { class: 'digest', title: plain(run.plan_digest) },
                    plain(run.plan_digest, 8).replace('\u2026', ''))),
            fact('Steps', `${run.steps.filter(step => step.verdict === 'pass').length} of ${run.steps.length} passed`),
            fact('Station', shown(run.station, { limit: 200 })), fact('Port', shown(run.port, { limit: 300 })),
            fact('Software', shown(run.software, { limit: 100 })),
            fact('Run', el('span', { class: 'id' }, shown(run.id)))),
    ];
}

// The request and the answer with their bytes, made when they are asked for.
function details(step) {
    const answered = ofHex(step.answer_bytes) ?? (step.answer === null ? null : ofText(step.answer));
    const asked = ofHex(step.request_bytes);
    const part = (name, text, bytes, words) => el('section', {}, el('h3', {}, name),
        text === null || text === '' ? el('p', { class: 'muted' }, 'nothing')
                                     : el('p', { class: 'whole', tabindex: 0, role: 'region', 'aria-label': name },
                                           shown(text, { lines: true })),
        bytes ? [el('h4', {}, words), dump(bytes)] : null);
    return el('div', { class: 'details' }, part('Request', step.request, asked, `${asked?.length} bytes on the wire`),
        part('Answer', step.answer, step.code === null ? null : answered, `${answered?.length} bytes of data`),
        step.expected === null ? null : el('p', {}, 'Wanted: ', shown(step.expected, { limit: 4000 })),
        el('p', { class: 'muted' }, `Began ${took(step.began)} after the run\u2019s start`));
}

class Row {
    constructor(run, step, wanted) {
        const address = `#/run/${encode(run.id)}/${Number(step.number)}`;
        const id = `step${Number(step.number)}`;
        this.step = step;
        this.place = el('td', { colspan: 6 });
        this.below = el('tr', { class: 'below', id: `${id}more`, hidden: true }, this.place);
        this.toggle = el('button', {
            type: 'button',
            class: 'more',
            'aria-expanded': 'false',
            'aria-controls': `${id}more`,
            'aria-label': `Bytes of step ${Number(step.number)}`,
            click: () => this.open(this.below.hidden)
        },
            'Bytes');
        const failed = step.verdict !== 'pass';
        this.line = el('tr',
            { class: `step ${plain(step.verdict)}${wanted ? ' wanted' : ''}`, id, tabindex: wanted ? -1 : null },
            el('td', { class: 'nr' },
                el('a', { href: address, 'aria-label': `Link to step ${Number(step.number)}` },
                    String(Number(step.number)))),
            el('th', { class: 'name', scope: 'row' }, shown(step.name, { limit: SHORT }),
                step.code ? el('span', { class: 'code' }, shown(step.code)) : null),
            el('td', { class: 'value' }, el('div', { class: 'clip' }, value(step, { limit: SHORT })),
                failed && step.expected !== null
                    ? el('div', { class: 'wants' }, 'wanted ', shown(step.expected, { limit: SHORT }))
                    : null),
            el('td', { class: 'bar-cell' }, limitsBar(step), limitsText(step)),
            el('td', { class: 'took' }, took(step.milliseconds)),
            el('td', { class: 'how' },
                el('span', { class: `small ${plain(step.verdict)}` }, shape(step.verdict),
                    el('span', {}, word(step.verdict))),
                this.toggle));
        this.why = failed && step.cause
            ? el('tr', { class: 'because' }, el('td', {}),
                  el('td', { colspan: 5 },
                      el('p', { class: 'cause' }, shown(step.cause, { lines: true, limit: 20000 }))))
            : null;
        this.rows = [this.line, ...(this.why ? [this.why] : []), this.below];
    }

    open(yes) {
        if (yes && !this.place.firstChild)
            this.place.append(details(this.step));
        this.below.hidden = !yes;
        this.toggle.setAttribute('aria-expanded', String(yes));
    }
}

function table(run, wanted) {
    const rows = [];
    const bodies = [];
    let phase;
    for (const step of run.steps) {
        if (!bodies.length || step.phase !== phase) {
            phase = step.phase;
            bodies.push(el('tbody', {},
                el('tr', { class: 'phase' },
                    el('th', { colspan: 6, scope: 'rowgroup' },
                        phase ? shown(phase, { limit: 200 }) : 'before the first phase'))));
        }
        const row = new Row(run, step, String(step.number) === wanted);
        rows.push(row);
        bodies.at(-1).append(...row.rows);
    }
    const titles = ['No.', 'Step', 'Value', 'Limits', 'Time', 'Verdict'];
    return [
        rows,
        el('table', { class: 'steps' }, el('caption', { class: 'unseen' }, 'Steps by phase'),
            el('thead', {}, el('tr', {}, titles.map(title => el('th', { scope: 'col' }, title)))), ...bodies)
    ];
}

function tools(run, rows) {
    const download = (form, name) =>
        el('a', { class: 'button', href: `/api/runs/${encode(run.id)}?form=${form}`, download: true }, name);
    const all = el('button', {
        type: 'button',
        'aria-pressed': 'false',
        click: () => {
            const open = all.getAttribute('aria-pressed') !== 'true';
            all.setAttribute('aria-pressed', String(open));
            rows().forEach(row => row.open(open));
        }
    },
        'All bytes');
    return el('div', { class: 'tools' }, download('junit', 'JUnit'), download('csv', 'CSV'), download('json', 'JSON'),
        el('button', { type: 'button', click: () => window.print() }, 'Print'), all);
}

export function runView(root, id, wanted) {
    const ends = new AbortController();
    const top = el('header', { class: 'run-head' }, el('h1', { tabindex: -1 }, 'Run'));
    const steps = el('div', { class: 'steps-place' }, el('p', { class: 'muted' }, 'Reading\u2026'));
    const message = el('p', { class: 'message', role: 'alert' });
    const link = el('p', { class: 'only-print' });
    let rows = [], run = null, timer = 0, stop = () => {};
    const place = el('div');
    root.classList.add('run');
    root.append(top, message, place, steps, link);
    put(link, location.href, { limit: 500 });

    function show() {
        const opened = new Set(rows.filter(row => !row.below.hidden).map(row => row.step.number));
        top.replaceChildren(...head(run).filter(Boolean));
        let all;
        [rows, all] = table(run, wanted);
        const at = document.activeElement, held = steps.contains(at) ? at.closest('tr')?.id : null;
        steps.replaceChildren(all);
        const again = held && document.getElementById(held)?.querySelector(at.matches('.more') ? '.more' : 'a');
        again?.focus({ preventScroll: true });
        rows.filter(row => opened.has(row.step.number)).forEach(row => row.open(true));
        if (!place.firstChild)
            place.append(tools(run, () => rows));
    }

    async function read(first) {
        try {
            const newest = await get(`/api/runs/${encode(id)}`, {}, ends.signal);
            message.textContent = '';
            if (run && run.verdict === newest.verdict && run.steps.length === newest.steps.length)
                return;
            run = newest;
            show();
            view.title = `${word(run.verdict)} ${plain(run.unit, 40)}`;
            if (first && wanted) {
                const row = rows.find(one => String(one.step.number) === wanted);
                row?.open(true);
                row?.line.scrollIntoView({ block: 'center' });
                row?.line.focus({ preventScroll: true });
            }
            if (run.verdict)
                stop();
        } catch (problem) {
            if (problem.name === 'AbortError')
                return;
            message.textContent = plain(problem.message, 300);
            if (first)
                steps.replaceChildren();
        }
    }

    // A run that goes on is looked at again when something of the line has changed.
    stop = listen('slots', () => {
        if (run && !run.verdict && !timer)
            timer = setTimeout(() => {
                timer = 0;
                read(false);
            }, EVERY);
        else if (!run && live.state === 'live' && message.textContent && !timer)
            timer = setTimeout(() => {
                timer = 0;
                read(true);
            }, EVERY);
    });
    const view = {
        title: 'Run',
        leave: () => {
            stop();
            clearTimeout(timer);
            ends.abort();
        }
    };
    read(true);
    return view;
}
