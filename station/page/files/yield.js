// What passes, what fails most, and how a measurement behaves: for a shift, a day, a week, or any span, of one plan or
// all.
import {el, put, say} from './dom.js';
import {get, query} from './api.js';
import {Measurement} from './measurement.js';
import {Drawing} from './charts.js';
import {listen} from './live.js';
import {clock, day, moment, percent, zone} from './time.js';
import {plain, shown} from './text.js';

const SPANS = [
    ['8h', 'Shift', 'the last shift (8 hours)'], ['24h', 'Day', 'the last 24 hours'], ['7d', 'Week', 'the last 7 days'],
    ['30d', 'Month', 'the last 30 days'], ['', 'All', 'all records']
];
const HOUR = 3600000;
const AGAIN = 4000; // ms between looks while runs end
const MOST_STEPS = 30;

// From the address to what is asked of the server. Own spans are since..until; others end now.
function asked(parameters) {
    const span = parameters.get('since') || parameters.get('until') ? null : parameters.get('span') ?? '8h';
    return {
        plan: parameters.get('plan') ?? '',
        since: span === null ? parameters.get('since') ?? '' : span,
        until: parameters.get('until') ?? '',
        span
    };
}

function bucketHours(bucket, from) {
    if (bucket === 'hour')
        return 1;
    if (bucket === 'day')
        return 24;
    const begin = new Date(from);
    return (Date.UTC(begin.getUTCFullYear(), begin.getUTCMonth() + 1) -
               Date.UTC(begin.getUTCFullYear(), begin.getUTCMonth())) /
        HOUR;
}

// Units an hour, of the hours that a bucket has had so far, a quarter at least: two units in a minute are no pace.
export function pace(point, bucket, now, begin = -Infinity) {
    const from = Date.parse(point.from);
    const until = Math.min(now, from + bucketHours(bucket, point.from) * HOUR);
    return point.units / Math.max((until - Math.max(from, begin)) / HOUR, 1 / 4);
}

function label(from, bucket) {
    return bucket === 'hour' ? `${day(from).slice(5)} ${clock(from, false)}`
        : bucket === 'day' ? day(from)
                           : day(from).slice(0, 7);
}

function chosen(parameters) {
    const to = change => {
        const all = new URLSearchParams(parameters);
        for (const [name, value] of Object.entries(change)) {
            all.delete(name);
            if (value !== '' && value !== null)
                all.set(name, value);
        }
        return `#/yield${query(Object.fromEntries(all))}`;
    };
    return to;
}

class Controls {
    constructor() {
        this.spans = el('div', { class: 'spans', role: 'group', 'aria-label': 'Time' });
        this.plan = el('select', { change: () => { location.hash = this.to({ plan: this.plan.value, name: '' }); } });
        this.since = el('input', { type: 'datetime-local', name: 'since', step: 1 });
        this.until = el('input', { type: 'datetime-local', name: 'until', step: 1 });
        this.element = el('div', { class: 'controls-bar' }, this.spans,
            el('form', {
                class: 'filters',
                submit: event => {
                    event.preventDefault();
                    this.own();
                }
            },
                el('label', {}, el('span', {}, 'Plan'), this.plan), el('label', {}, el('span', {}, 'From'), this.since),
                el('label', {}, el('span', {}, 'Until'), this.until), el('button', { type: 'submit' }, 'Show')));
    }

    own() {
        const utc = field => field.value ? new Date(field.value).toISOString() : '';
        location.hash = this.to(
            { span: this.since.value || this.until.value ? '' : '8h', since: utc(this.since), until: utc(this.until) });
    }

    show(parameters, now) {
        this.to = chosen(parameters);
        const local = time => time && !Number.isNaN(Date.parse(time)) ? moment(time).replace(' ', 'T') : '';
        this.since.value = local(parameters.get('since'));
        this.until.value = local(parameters.get('until'));
        this.spans.replaceChildren(...SPANS.map(([span, name, title]) => el('a', {
            class: 'button',
            href: span === '' ? this.to({ span: 'all', since: '', until: '' })
                              : this.to({ span, since: '', until: '' }),
            title,
            'aria-current': (span || 'all') === (now.span === '' ? 'all' : now.span) ? 'true' : null
        },
                                                    name)));
    }

    offer(plans, plan) {
        const all = plan && !plans.includes(plan) ? [...plans, plan] : plans;
        this.plan.replaceChildren(el('option', { value: '' }, 'all plans'),
            ...all.map(name => el('option', { value: name, selected: name === plan }, plain(name, 80))));
    }
}

function figure(name, text, note) {
    return el('div', { class: 'figure' }, el('dt', {}, name),
        el('dd', {}, el('span', { class: 'large' }, text), note ? el('span', { class: 'muted' }, note) : null));
}

function totals(found, hours) {
    const sum = name => found.plans.reduce((all, plan) => all + plan[name], 0);
    const first = sum('first'), firstPass = sum('first_pass'), units = sum('units');
    return [
        figure('First-pass yield', percent(firstPass, first), `${firstPass} of ${first} units`),
        figure('Passed in the end', percent(sum('passed'), units), `${sum('passed')} of ${units} units`),
        figure('Units an hour', hours ? (units / hours).toFixed(1) : '\u2013',
            hours ? `over ${
                        hours < 48 ? `${hours.toFixed(hours < 10 ? 1 : 0)} hours` : `${(hours / 24).toFixed(0)} days`}`
                                                                                  : ''),
        figure('Runs', String(sum('runs')), units ? `${(sum('runs') / units).toFixed(2)} a unit` : '')
    ];
}

function plansTable(found) {
    return el('table', { class: 'numbers many' }, el('caption', {}, 'Plans'),
        el('thead', {}, el('tr', {}, ['Plan', 'Units', 'First time', 'First pass', 'First-pass yield', 'Passed',
            'Runs'].map(title => el('th', { scope: 'col' }, title)))),
        el('tbody', {},
            found.plans.map(plan => el('tr', { 'data-plan': plan.plan },
                                el('th', { scope: 'row' }, shown(plan.plan, { limit: 200 })),
                                ...[plan.units, plan.first, plan.first_pass, percent(plan.first_pass, plan.first),
                                    plan.passed, plan.runs]
                                    .map(cell => el('td', {}, String(cell)))))));
}

// Failing steps in order of harm, each with the runs that it has ended.
function harmTable(found, filter) {
    const most = Math.max(1, ...found.steps.map(step => step.units));
    return el('table', { class: 'numbers harm' }, el('caption', {}, 'Failing steps, the most harmful first'),
        el('thead', {},
            el('tr', {}, ['Step', 'Units', 'Lost', 'Runs'].map(title => el('th', { scope: 'col' }, title)))),
        el('tbody', {}, found.steps.slice(0, MOST_STEPS).map(step => {
            const bar = el('span', { class: 'harm-bar', 'aria-hidden': 'true' });
            bar.style.setProperty('--share', step.units / most);
            return el('tr', {},
                el('th', { scope: 'row' },
                    step.step === null ? 'no step'
                                       : el('a', { href: `#/unit${query({...filter, failing: step.step })}` },
                                             shown(step.step, { limit: 200 })),
                    bar),
                ...[step.units, step.lost, step.runs].map(cell => el('td', {}, String(cell))));
        })));
}

function overTimeTable(points, bucket, now, begin) {
    return el('details', {}, el('summary', {}, 'As a table'),
        el('table', { class: 'numbers many' },
            el('thead', {}, el('tr', {}, ['From', 'Runs', 'Units', 'First time', 'First pass', 'Yield',
                'Units an hour'].map(title => el('th', { scope: 'col' }, title)))),
            el('tbody', {},
                points.map(point => el('tr', {}, el('th', { scope: 'row' }, label(point.from, bucket)),
                               ...[point.runs, point.units, point.first, point.first_pass,
                                   percent(point.first_pass, point.first), pace(point, bucket, now, begin).toFixed(1)]
                                   .map(cell => el('td', {}, String(cell))))))));
}

function yieldChart(points, bucket) {
    return colour => ({
        data: {
            labels: points.map(point => label(point.from, bucket)),
            datasets: [{
                type: 'line',
                label: 'First-pass yield, %',
                data: points.map(point => point.first ? 100 * point.first_pass / point.first : null),
                borderColor: colour.accent,
                backgroundColor: colour.accent,
                borderWidth: 2,
                pointRadius: points.length > 60 ? 0 : 3,
                clip: 6,
                tension: 0,
                spanGaps: true
            }],
        },
        options: {
            scales: {
                x: { offset: points.length < 3, grid: { display: false } },
                y: { min: 0, max: 100, ticks: { callback: value => `${value} %` } }
            }
        },
    });
}

function paceChart(points, bucket, now, begin) {
    return colour => ({
        type: 'bar',
        data: {
            labels: points.map(point => label(point.from, bucket)),
            datasets: [{
                label: 'Units an hour',
                data: points.map(point => Number(pace(point, bucket, now, begin).toFixed(2))),
                backgroundColor: colour.accentSoft,
                borderColor: colour.accent,
                borderWidth: { top: 2 },
                maxBarThickness: 40
            }]
        },
        options: { scales: { x: { grid: { display: false } }, y: { beginAtZero: true, title: { display: false } } } },
    });
}

export function yieldView(root, parameters) {
    let ends = new AbortController(), timer = 0;
    const controls = new Controls();
    const message = el('p', { class: 'message', role: 'status' });
    const span = el('p', { class: 'muted' });
    const figures = el('dl', { class: 'figures-row' });
    const overTime = new Drawing('First-pass yield over time'), anHour = new Drawing('Units an hour');
    const table = el('div'), plans = el('section', { class: 'panel' }), harm = el('section', { class: 'panel' });
    const measurement = new Measurement(name => { location.hash = chosen(parameters)({ name }); });
    root.classList.add('yield');
    root.append(el('h1', { tabindex: -1 }, 'Yield'), controls.element, span, message, figures,
        el('div', { class: 'panels' },
            el('section', { class: 'panel' }, el('h2', {}, 'First-pass yield over time'), overTime.element, table),
            el('section', { class: 'panel' }, el('h2', {}, 'Units an hour'), anHour.element), harm, plans,
            measurement.element));

    function show(found, now) {
        const { points, bucket } = found.over_time;
        const time = Date.now();
        const until = now.until ? Math.min(time, Date.parse(now.until)) : time;
        const begin = /^\d+[hd]$/.test(now.since)
            ? time - parseInt(now.since, 10) * (now.since.endsWith('h') ? HOUR : 24 * HOUR)
            : now.since     ? Date.parse(now.since)
            : points.length ? Date.parse(points[0].from)
                            : NaN;
        say(span, Number.isNaN(begin) ? 'No runs.' : `${moment(begin)} to ${moment(until)} (${zone(until)})`);
        figures.replaceChildren(...totals(found, Number.isNaN(begin) ? 0 : (until - begin) / HOUR));
        message.textContent = found.plans.length ? '' : 'No run has ended in this time.';
        plans.replaceChildren(plansTable(found));
        harm.replaceChildren(harmTable(found, {
            plan: now.plan,
            since: Number.isNaN(begin) || now.since === '' ? '' : new Date(begin).toISOString(),
            until: now.until,
            verdict: ''
        }),
            found.steps.length > MOST_STEPS ? el('p', { class: 'muted' }, `and ${found.steps.length - MOST_STEPS} more`)
                : found.steps.length ? ''
                                     : el('p', { class: 'muted' }, 'None.'));
        table.replaceChildren(overTimeTable(points, bucket, until, begin));
        const failed = problem => put(message, problem.message);
        overTime
            .draw(yieldChart(points, bucket),
                `First-pass yield over time: ${
                    points.map(point => `${label(point.from, bucket)} ${percent(point.first_pass, point.first)}`)
                        .slice(-12)
                        .join(', ')}`)
            .catch(failed);
        anHour
            .draw(paceChart(points, bucket, until, begin),
                `Units an hour: ${
                    points.map(point => `${label(point.from, bucket)} ${pace(point, bucket, until, begin).toFixed(1)}`)
                        .slice(-12)
                        .join(', ')}`)
            .catch(failed);
    }

    async function read() {
        ends.abort();
        ends = new AbortController();
        const now = asked(parameters);
        if (now.since === 'all')
            now.since = now.span = '';
        controls.show(parameters, now);
        const filter = { plan: now.plan, since: now.since, until: now.until };
        try {
            const [found, known] =
                await Promise.all([get('/api/yield', filter, ends.signal), get('/api/plans', {}, ends.signal)]);
            controls.offer(known.plans, now.plan);
            show(found, now);
            await measurement.read(filter, parameters.get('name') ?? '', ends.signal);
        } catch (problem) {
            if (problem.name !== 'AbortError')
                message.textContent = plain(problem.message, 300);
        }
    }

    const stop = listen('run', () => {
        timer ||= setTimeout(() => {
            timer = 0;
            if (!asked(parameters).until)
                read();
        }, AGAIN);
    });
    read();
    return {
        title: 'Yield',
        changed: next => {
            parameters = next;
            read();
        },
        leave: () => {
            stop();
            clearTimeout(timer);
            ends.abort();
            [overTime, anHour, measurement].forEach(one => one.leave());
        },
    };
}
