// Times and numbers for people's eyes.

const two = number => String(number).padStart(2, '0');

function parts(time) {
    const at = new Date(time);
    return Number.isNaN(at.getTime()) ? null : at;
}

export function day(time) {
    const at = parts(time);
    return at ? `${at.getFullYear()}-${two(at.getMonth() + 1)}-${two(at.getDate())}` : '\u2013';
}

export function clock(time, seconds = true) {
    const at = parts(time);
    return at ? `${two(at.getHours())}:${two(at.getMinutes())}${seconds ? ':' + two(at.getSeconds()) : ''}` : '\u2013';
}

// In this machine's own zone: people compare it with the clock on the wall.
export function moment(time) { return parts(time) ? `${day(time)} ${clock(time)}` : '\u2013'; }

export function zone(time) {
    const minutes = -new Date(time).getTimezoneOffset();
    if (!minutes)
        return 'UTC';
    const size = Math.abs(minutes);
    return `UTC${minutes < 0 ? '\u2212' : '+'}${Math.floor(size / 60)}${size % 60 ? ':' + two(size % 60) : ''}`;
}

export function elapsed(milliseconds) {
    const seconds = Math.max(0, Math.floor(milliseconds / 1000));
    const hours = Math.floor(seconds / 3600);
    return (hours ? `${hours}:${two(Math.floor(seconds / 60) % 60)}` : `${Math.floor(seconds / 60)}`) + ':' +
        two(seconds % 60);
}

export function took(milliseconds) {
    if (typeof milliseconds !== 'number' || !Number.isFinite(milliseconds))
        return '';
    if (milliseconds < 10)
        return `${milliseconds.toFixed(2)} ms`;
    if (milliseconds < 1000)
        return `${milliseconds.toFixed(0)} ms`;
    return milliseconds < 60000 ? `${(milliseconds / 1000).toFixed(1)} s` : elapsed(milliseconds);
}

export function percent(part, whole) { return whole ? `${(100 * part / whole).toFixed(1)} %` : '\u2013'; }

// Some significant digits, whatever the size, in groups of three.
export function number(value, digits = 5) {
    if (typeof value !== 'number' || !Number.isFinite(value))
        return '\u2013';
    if (value !== 0 && (Math.abs(value) >= 1e15 || Math.abs(value) < 1e-6))
        return value.toExponential(digits - 1).replace('-', '\u2212');
    const decimals = value === 0 ? 0 : Math.max(0, Math.min(12, digits - 1 - Math.floor(Math.log10(Math.abs(value)))));
    const text = Number(value.toFixed(decimals)).toString().replace('-', '\u2212');
    const [whole, fraction] = text.split('.');
    return whole.replace(/\B(?=(\d{3})+(?!\d))/g, '\u202f') + (fraction ? '.' + fraction : '');
}
