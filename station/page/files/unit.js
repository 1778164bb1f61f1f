// A unit's story: its runs over time, and any two of them side by side.
import {badge, el, shape} from './dom.js';
import {encode, get, query} from './api.js';
import {value} from './limits.js';
import {listen} from './live.js';
import {moment, took, zone} from './time.js';
import {plain, shown} from './text.js';
import {align} from './align.js';
import {unitAddress} from './run.js';

const PAGE = 50;

function filters(serial, parameters, changed) {
    const field = (label, control) => el('label', {}, el('span', {}, label), control);
    const verdict = el('select', { name: 'verdict' }, [
        ['', 'any'], ['pass', 'pass'], ['fail', 'fail'], ['error', 'error'], ['aborted', 'aborted'],
        ['running', 'running']
    ].map(([name, text]) => el('option', { value: name, selected: (parameters.get('verdict') ?? '') === name }, text)));
    const unit =
        el('input', { name: 'unit', type: 'search', autocomplete: 'off', spellcheck: 'false', maxlength: 2000 });
    unit.value = serial;
    return el('form', {
        class: 'filters',
        submit: event => {
            event.preventDefault();
            changed(unit.value.trim(), verdict.value);
        }
    },
        field('Serial number', unit), field('Verdict', verdict), el('button', { type: 'submit' }, 'Show'));
}

class RunList {
    constructor(serial) {
        this.serial = serial;
        this.chosen = [];
        this.rows = new Map();
        this.body = el('tbody');
        this.compare = serial ? el('button', {
            type: 'button',
            disabled: true,
            click: () => {
                const [a, b] = [...this.chosen].sort();
                location.hash = `${unitAddress({ unit: serial })}/compare/${encode(a)}/${encode(b)}`;
            }
        },
                                    'Compare the two chosen')
                              : null;
        const titles = [
            ...(serial ? ['Choose'] : []), 'Started', ...(serial ? [] : ['Unit']), 'Verdict', 'First failing step',
            'Took', 'Plan', 'Station'
        ];
        this.table = el('table', { class: 'runs' }, el('caption', { class: 'unseen' }, 'Runs, the newest first'),
            el('thead', {}, el('tr', {}, titles.map(title => el('th', { scope: 'col' }, title)))), this.body);
    }

    choose(id, on) {
        this.chosen = this.chosen.filter(one => one !== id);
        if (on)
            this.chosen.push(id);
        while (this.chosen.length > 2)
            this.rows.get(this.chosen.shift()).box.checked = false;
        this.compare.disabled = this.chosen.length !== 2;
    }

    row(run) {
        const started = moment(run.started);
        const box = this.serial ? el('input', {
            type: 'checkbox',
            'aria-label': `Choose the run of ${started}`,
            change: event => this.choose(run.id, event.target.checked)
        })
                                : null;
        const length = run.ended ? Date.parse(run.ended) - Date.parse(run.started) : null;
        const element = el('tr', {}, box ? el('td', { class: 'choose', 'data-title': 'Choose' }, box) : null,
            el('td', { 'data-title': 'Started' },
                el('a', { href: `#/run/${encode(run.id)}` }, el('time', { datetime: plain(run.started) }, started))),
            this.serial ? null
                        : el('td', { class: 'unit-cell', 'data-title': 'Unit' },
                              el('a', { href: unitAddress(run) }, shown(run.unit, { limit: 200 }))),
            el('td', { 'data-title': 'Verdict' }, badge(run.verdict)),
            el('td', { class: 'failing-cell', 'data-title': 'First failing step' },
                shown(run.failing ?? run.cause ?? '', { limit: 200 })),
            el('td', { class: 'took', 'data-title': 'Took' }, length === null ? '' : took(length)),
            el('td', { 'data-title': 'Plan' }, shown(run.plan, { limit: 100 })),
            el('td', { 'data-title': 'Station' }, shown(run.station, { limit: 100 })));
        return { box, element };
    }

    // The newest first; what is there already is put in its new form.
    add(run, atTop = false) {
        const row = this.row(run), known = this.rows.get(run.id);
        this.rows.set(run.id, row);
        if (known) {
            if (row.box)
                row.box.checked = known.box.checked;
            known.element.replaceWith(row.element);
        } else if (atTop) {
            this.body.prepend(row.element);
        } else {
            this.body.append(row.element);
        }
    }
}

export function unitView(root, serial, parameters) {
    const ends = new AbortController();
    const asked = {
        unit: serial,
        verdict: parameters.get('verdict'),
        plan: parameters.get('plan'),
        since: parameters.get('since'),
        until: parameters.get('until'),
        failing: parameters.get('failing')
    };
    const list = new RunList(serial);
    const message = el('p', { class: 'message', role: 'status' }, 'Reading\u2026');
    let next = null;
    const older = el('button', { type: 'button', hidden: true, click: () => read() }, 'Older runs');
    const limits = ['plan', 'since', 'until', 'failing'].filter(name => asked[name]);
    root.append(
        el('h1', { tabindex: -1 }, ...(serial ? ['Unit ', shown(serial, { limit: 300 })] : ['Units and their runs'])),
        filters(serial, parameters,
            (unit, verdict) => {
                location.hash = `#/unit${unit ? '/' + encode(unit) : ''}${
                    query({...Object.fromEntries(limits.map(name => [name, asked[name]])), verdict })}`;
            }),
        el('p', { class: 'limited', hidden: limits.length === 0 },
            limits.map(name => el('span', { class: 'limit-chip' },
                           { plan: 'plan ', since: 'since ', until: 'until ', failing: 'first failing step ' }[name],
                           shown(/^(since|until)$/.test(name) && /^\d{4}-.*T/.test(asked[name])
                                   ? `${moment(asked[name])} ${zone(asked[name])}`
                                   : asked[name],
                               { limit: 100 }))),
            el('a', { href: serial ? unitAddress({ unit: serial }) : '#/unit' }, 'All runs')),
        el('div', { class: 'tools' }, list.compare), message, list.table, older);
    list.table.hidden = true;

    async function read() {
        older.disabled = true;
        try {
            const page = await get('/api/runs', {...asked, limit: PAGE, before: next }, ends.signal);
            page.runs.forEach(run => list.add(run));
            next = page.next;
            older.hidden = !next;
            list.table.hidden = list.rows.size === 0;
            message.textContent = list.rows.size ? ''
                : serial                         ? 'There are no such runs of this unit.'
                                                 : 'There are no such runs.';
        } catch (problem) {
            if (problem.name === 'AbortError')
                return;
            message.textContent = plain(problem.message, 300);
        }
        older.disabled = false;
    }

    // What ends meanwhile appears, where no filter would have to be asked again.
    const stop = listen('run', run => {
        if (limits.length || (serial && run.unit !== serial) || (asked.verdict && asked.verdict !== run.verdict))
            return;
        list.add(run, true);
        list.table.hidden = false;
        message.textContent = '';
    });
    read();
    return {
        title: serial ? `Unit ${plain(serial, 40)}` : 'Units',
        leave: () => {
            stop();
            ends.abort();
        }
    };
}

function side(step, other) {
    if (!step)
        return [el('td', { class: 'none' }, 'not played'), el('td', {})];
    return [
        el('td', { class: 'value' }, el('div', { class: 'clip' }, value(step, { limit: 300 })),
            step.cause && step.verdict !== 'pass'
                ? el('div', { class: 'cause' }, shown(step.cause, { lines: true, limit: 1000 }))
                : null),
        el('td', {},
            el('span',
                { class: `small ${plain(step.verdict)}${other && other.verdict !== step.verdict ? ' other' : ''}` },
                shape(step.verdict), el('span', {}, plain(step.verdict))))
    ];
}

export function compareView(root, serial, first, second) {
    const ends = new AbortController();
    const message = el('p', { class: 'message', role: 'status' }, 'Reading\u2026');
    const place = el('div');
    const only =
        el('input', { type: 'checkbox', change: () => place.classList.toggle('only-differences', only.checked) });
    root.append(el('h1', { tabindex: -1 }, 'Two runs of ',
                    el('a', { href: unitAddress({ unit: serial }) }, shown(serial, { limit: 300 }))),
        el('div', { class: 'tools' }, el('label', {}, only, ' Only the steps that differ')), message, place);

    function show(a, b) {
        const pairs = align(a.steps, b.steps);
        const column = run => el('th', { colspan: 2, scope: 'colgroup' }, badge(run.verdict), ' ',
            el('a', { href: `#/run/${encode(run.id)}` }, moment(run.started)));
        const count = kind => pairs.filter(pair => pair.differs === kind).length;
        message.textContent = `Of ${pairs.length} steps ${count('verdict')} differ in their verdict, ${
            count('value')} in their value alone.`;
        const body = el('tbody', {},
            pairs.map(
                ({ a: left, b: right, differs }) => el('tr', { class: differs ? `differs by-${differs}` : 'same' },
                    el('td', { class: 'differs-sign' }, differs ? ['\u2260 ', differs] : null),
                    el('th', { scope: 'row' },
                        el('span', { class: 'phase-of' }, shown((left ?? right).phase ?? '', { limit: 60 })), ' ',
                        shown((left ?? right).name, { limit: 200 })),
                    side(left, right), side(right, left))));
        place.append(el('table', { class: 'compare' }, el('caption', { class: 'unseen' }, 'Steps of both runs'),
            el('thead', {}, el('tr', {}, el('td', {}), el('th', { scope: 'col' }, 'Step'), column(a), column(b))),
            body));
    }

    Promise.all([first, second].map(id => get(`/api/runs/${encode(id)}`, {}, ends.signal)))
        .then(([a, b]) => show(a, b), problem => {
            if (problem.name !== 'AbortError')
                message.textContent = plain(problem.message, 300);
        });
    return { title: `Two runs of ${plain(serial, 40)}`, leave: () => ends.abort() };
}
