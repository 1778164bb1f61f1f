// One measurement over many runs: how it is spread among its limits, and how it drifts.
import {el, put} from './dom.js';
import {get} from './api.js';
import {Drawing} from './charts.js';
import {clock, day, number} from './time.js';
import {plain, shown} from './text.js';

const decimal = text =>
    text === null || text === undefined || text === '' || !Number.isFinite(Number(text)) ? null : Number(text);

// What a Cpk means, in a word.
function capability(cpk) { return cpk >= 1.33 ? 'capable' : cpk >= 1 ? 'barely capable' : 'not capable'; }

function limitLines(found, colour, axis) {
    return [['low', 'low limit'], ['high', 'high limit']].filter(([name]) => decimal(found[name]) !== null).map(([
        name, label
    ]) => ({ axis, value: decimal(found[name]), label: `${label} ${plain(found[name], 30)}`, colour: colour.fail }));
}

function histogram(found) {
    return colour => {
        const bars = found.histogram;
        const values = [decimal(found.low), decimal(found.high), ...bars.flatMap(bar => [bar.from, bar.to])].filter(
            value => value !== null);
        const begin = Math.min(...values), end = Math.max(...values), edge = (end - begin) * 0.04 || 1;
        const lines = limitLines(found, colour, 'x');
        if (found.mean !== null)
            lines.push({ axis: 'x', value: found.mean, label: 'mean', colour: colour.ink, dash: [5, 4], row: 1 });
        return {
            type: 'bar',
            data: {
                datasets: [{
                    label: 'Runs',
                    data: bars.map(bar => ({ x: (bar.from + bar.to) / 2, y: bar.count })),
                    backgroundColor: colour.accentSoft,
                    borderColor: colour.accent,
                    borderWidth: 1,
                    barPercentage: 1,
                    categoryPercentage: 1
                }]
            },
            options: {
                scales: {
                    x: {
                        type: 'linear',
                        min: begin - edge,
                        max: end + edge,
                        offset: false,
                        grid: { display: false },
                        ticks: { maxTicksLimit: 7, includeBounds: false, callback: value => number(value, 4) }
                    },
                    y: { beginAtZero: true, ticks: { precision: 0 } }
                },
                plugins: {
                    rules: { lines },
                    tooltip: {
                        callbacks: {
                            title: items => {
                                const bar = bars[items[0]?.dataIndex];
                                return bar ? `${number(bar.from)} \u2026 ${number(bar.to)}` : '';
                            }
                        }
                    }
                },
            },
        };
    };
}

function drift(found) {
    return colour => {
        const points = found.drift;
        const day_only =
            points.length > 1 && Date.parse(points.at(-1).from) - Date.parse(points[0].from) > 3 * 86400000;
        const sides = sign => points.map(point => point.mean + sign * 3 * (point.sigma ?? 0));
        const all = [...sides(1), ...sides(-1), decimal(found.low), decimal(found.high)].filter(
            value => value !== null && Number.isFinite(value));
        const low = Math.min(...all), high = Math.max(...all), edge = (high - low) * 0.08 || 1;
        const radius = points.length > 40 ? 1.5 : 3;
        return {
            type: 'line',
            data: {
                labels: points.map(
                    point => day_only ? day(point.from) : `${day(point.from).slice(5)} ${clock(point.from, false)}`),
                datasets: [
                    {
                        label: 'Mean',
                        data: points.map(point => point.mean),
                        borderColor: colour.accent,
                        backgroundColor: colour.accent,
                        borderWidth: 2,
                        pointRadius: radius
                    },
                    {
                        label: 'Mean + 3 sigma',
                        data: sides(1),
                        borderColor: colour.muted,
                        borderWidth: 1,
                        borderDash: [3, 3],
                        pointRadius: 0,
                        fill: '+1',
                        backgroundColor: colour.accentSoft
                    },
                    {
                        label: 'Mean \u2212 3 sigma',
                        data: sides(-1),
                        borderColor: colour.muted,
                        borderWidth: 1,
                        borderDash: [3, 3],
                        pointRadius: 0
                    },
                ],
            },
            options: {
                scales: {
                    x: { grid: { display: false } },
                    y: {
                        min: low - edge,
                        max: high + edge,
                        ticks: { maxTicksLimit: 7, includeBounds: false, callback: value => number(value, 4) }
                    }
                },
                plugins: { rules: { lines: limitLines(found, colour, 'y') } }
            },
        };
    };
}

export class Measurement {
    constructor(choose) {
        this.select = el('select', { change: () => choose(this.select.value) });
        this.figures = el('dl', { class: 'facts' });
        this.spread = new Drawing('Distribution');
        this.drift = new Drawing('Drift over time');
        this.note = el('p', { class: 'muted' });
        this.shown = el('div', { class: 'two' }, el('div', {}, el('h3', {}, 'Distribution'), this.spread.element),
            el('div', {}, el('h3', {}, 'Drift: mean and 3 sigma'), this.drift.element));
        this.element = el('section', { class: 'panel wide' }, el('h2', {}, 'A measurement'),
            el('label', { class: 'pick' }, el('span', {}, 'Measurement'), this.select), this.figures, this.note,
            this.shown);
    }

    async read(filter, wanted, signal) {
        const { names } = await get('/api/measurements', filter, signal);
        const name = wanted || names[0]?.name || '';
        const all = name && !names.some(one => one.name === name) ? [...names, { name, unit: '' }] : names;
        this.select.replaceChildren(
            ...all.map(one => el('option', { value: one.name, selected: one.name === name },
                           plain(one.name, 100) + (one.unit ? `, ${plain(one.unit, 20)}` : ''))));
        this.select.disabled = !all.length;
        if (!name) {
            this.none('Nothing was measured in this time.');
            return;
        }
        const found = await get('/api/measurements', {...filter, name }, signal);
        if (!found.count) {
            this.none('This was not measured in this time.');
            return;
        }
        this.show(found);
    }

    none(why) {
        put(this.note, why);
        this.shown.hidden = true;
        this.figures.replaceChildren();
    }

    show(found) {
        this.shown.hidden = false;
        const unit = () => found.unit ? [' ', shown(found.unit, { limit: 20 })] : [];
        const fact = (title, ...what) => el('div', {}, el('dt', {}, title), el('dd', {}, ...what));
        const value = text => text === null ? ['none'] : [number(decimal(text) ?? NaN, 9), ...unit()];
        this.figures.replaceChildren(fact('Count', String(found.count)), fact('Mean', number(found.mean), ...unit()),
            fact('3 sigma', found.sigma === null ? '\u2013' : number(3 * found.sigma), ...unit()),
            fact('Cpk', found.cpk === null ? '\u2013' : `${found.cpk.toFixed(2)}, ${capability(found.cpk)}`),
            fact('Low limit', ...value(found.low)), fact('High limit', ...value(found.high)),
            fact('Smallest', number(found.min, 9), ...unit()), fact('Largest', number(found.max, 9), ...unit()));
        put(this.note, found.values_are_newest ? `Of the newest ${found.count} values.` : '');
        const inWords =
            `mean ${number(found.mean)}, 3 sigma ${found.sigma === null ? 'unknown' : number(3 * found.sigma)}, from ${
                number(found.min)} to ${number(found.max)}`;
        const failed = problem => put(this.note, problem.message);
        this.spread.draw(histogram(found), `Distribution of ${plain(found.name, 60)}: ${inWords}`).catch(failed);
        this.drift
            .draw(drift(found), `Drift of ${plain(found.name, 60)} over time: ${found.drift.length} points, ${inWords}`)
            .catch(failed);
    }

    leave() {
        this.spread.leave();
        this.drift.leave();
    }
}
