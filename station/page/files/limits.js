// A measured value among its limits, as a bar: where the value may be is the filled part, where it is the mark. What it
// says is beside it in digits, so the bar itself is for the eye alone.
import {el, svg} from './dom.js';
import {figures, shown} from './text.js';

const WIDTH = 160, HEIGHT = 18;

// The span that the bar shows: the limits with a margin, or of one limit as much on either side as the value is away.
function span(low, high, value) {
    if (low !== null && high !== null) {
        const size = high - low || Math.abs(high) || 1;
        return [low - 0.2 * size, high + 0.2 * size];
    }
    const limit = low ?? high;
    const size = 1.4 * Math.abs(value - limit) || Math.abs(limit) || 1;
    return [limit - size, limit + size];
}

const decimal = text =>
    text === null || text === undefined || text === '' || !Number.isFinite(Number(text)) ? null : Number(text);

export function limitsBar(step) {
    const low = decimal(step.low), high = decimal(step.high), value = decimal(step.measured);
    if (value === null || (low === null && high === null))
        return null;
    const [begin, end] = span(low, high, value);
    const place = number => Math.max(0, Math.min(1, (number - begin) / (end - begin))) * (WIDTH - 12) + 6;
    const left = low === null ? 0 : place(low), right = high === null ? WIDTH : place(high);
    const at = place(value), outside = value < begin || value > end;
    const fits = (low === null || value >= low) && (high === null || value <= high);
    const middle = HEIGHT / 2;
    // A value beyond the bar's end is an arrow that points there.
    const beyond = value < begin ? `M0 ${middle}l9 -6v12z` : `M${WIDTH} ${middle}l-9 -6v12z`;
    return svg('svg', {
        class: `limits ${fits ? 'pass' : 'fail'}`,
        viewBox: `0 0 ${WIDTH} ${HEIGHT}`,
        'aria-hidden': 'true',
        focusable: 'false'
    },
        svg('line', { class: 'track', x1: 0, x2: WIDTH, y1: middle, y2: middle }),
        svg('rect', { class: 'allowed', x: left, width: Math.max(1, right - left), y: middle - 4, height: 8, rx: 2 }),
        low === null ? null : svg('line', { class: 'limit', x1: left, x2: left, y1: 2, y2: HEIGHT - 2 }),
        high === null ? null : svg('line', { class: 'limit', x1: right, x2: right, y1: 2, y2: HEIGHT - 2 }),
        outside    ? svg('path', { class: 'mark', d: beyond })
            : fits ? svg('circle', { class: 'mark', cx: at, cy: middle, r: 5 })
                   : svg('path', { class: 'mark', d: `M${at} ${middle - 7}l6 7l-6 7l-6 -7z` }));
}

export function limitsText(step) {
    if (step.low === null && step.high === null)
        return null;
    const unit = step.unit ? [' ', shown(step.unit, { limit: 20 })] : [];
    if (step.low !== null && step.low === step.high)
        return el('span', { class: 'range' }, 'exactly ', figures(step.low), ...unit);
    return el('span', { class: 'range' },
        ...(step.low === null        ? ['at most ']
                : step.high === null ? ['at least ']
                                     : []),
        ...(step.low === null ? [] : [figures(step.low)]),
        ...(step.low === null || step.high === null ? [] : [' \u2026 ']),
        ...(step.high === null ? [] : [figures(step.high)]), ...unit);
}

// What came: the measured number with its unit, or the answer.
export function value(step, options = {}) {
    if (step.measured !== null && step.measured !== undefined)
        return el('span', { class: 'measured' }, figures(step.measured),
            ...(step.unit ? [' ', shown(step.unit, { limit: 20 })] : []));
    return shown(step.answer ?? '', options);
}
