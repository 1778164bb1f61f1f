// Texts that came from elsewhere, as nodes. What a phone answers may hold anything: it is shown as text, kept apart
// from the text around it, and what the eye would not see, or what would turn the order of the letters, is spelt out.

// Control and format characters, line and paragraph separators, halves of pairs, letters that look like nothing, and
// marks heaped upon each other until they cover the lines around.
const HIDDEN = /[\p{Cc}\p{Cf}\p{Cs}\p{Zl}\p{Zp}\u034f\u115f\u1160\u17b4\u17b5\u180b-\u180f\u3164\uffa0]|\p{M}{5,}/gu;

function escaped(character) {
    const code = character.codePointAt(0);
    const digits = code.toString(16).toUpperCase();
    if (code < 0x100)
        return '\\x' + digits.padStart(2, '0');
    return code < 0x10000 ? '\\u' + digits.padStart(4, '0') : '\\u{' + digits + '}';
}

function spelt(found, lines) {
    if (found === '\n')
        return lines ? '\n' : '\u21b5';
    return found === '\t' ? '\t' : Array.from(found, escaped).join('');
}

// The same as a plain string, for attributes and titles.
export function plain(text, limit = 200) {
    const all = String(text ?? '');
    const cut = all.length > limit ? all.slice(0, limit) + '\u2026' : all;
    return cut.replace(HIDDEN, found => spelt(found, false));
}

// An element with the text. `lines`: line feeds part lines; otherwise it stays one line. `limit`: so many characters at
// most, and an ellipsis.
export function shown(text, {lines = false, limit = Infinity} = {}) {
    let all = String(text ?? '');
    if (all.length > limit)
        all = all.slice(0, limit) + '\u2026';
    const element = document.createElement('bdi');
    element.dir = 'auto';
    element.className = lines ? 'text lines' : 'text';
    let begin = 0;
    for (const match of all.matchAll(HIDDEN)) {
        element.append(all.slice(begin, match.index));
        begin = match.index + match[0].length;
        const instead = spelt(match[0], lines);
        if (instead === '\n' || instead === '\t') {
            element.append(instead);
        } else {
            const mark = document.createElement('span');
            mark.className = 'hidden-character';
            mark.textContent = instead;
            element.append(mark);
        }
    }
    element.append(all.slice(begin));
    return element;
}

// Digits in groups of three by space alone: what is copied is the number as it was kept. What is no plain decimal is
// text.
export function figures(text) {
    const parts = /^([+-]?)(\d{5,40})(\.\d+)?$/.exec(text);
    if (!parts)
        return shown(text);
    const element = document.createElement('span');
    element.className = 'figures';
    element.append(parts[1].replace('-', '\u2212'));
    for (let end = parts[2].length % 3 || 3, begin = 0; begin < parts[2].length; begin = end, end += 3) {
        const group = document.createElement('span');
        group.textContent = parts[2].slice(begin, end);
        element.append(group);
    }
    element.append(parts[3] ?? '');
    return element;
}
