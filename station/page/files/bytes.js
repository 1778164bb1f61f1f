// Bytes as people read them: where, in hexadecimal, as characters.
import {el} from './dom.js';

const ACROSS = 16;
const MOST = 65536;

export function ofHex(hex) {
    if (typeof hex !== 'string' || !/^([0-9a-fA-F]{2})*$/.test(hex))
        return null;
    return Uint8Array.from(hex.match(/../g) ?? [], pair => parseInt(pair, 16));
}

export function ofText(text) { return new TextEncoder().encode(text); }

export function dump(bytes) {
    const lines = [];
    for (let at = 0; at < bytes.length && at < MOST; at += ACROSS) {
        const row = bytes.subarray(at, at + ACROSS);
        const hex = Array.from(row, byte => byte.toString(16).padStart(2, '0'));
        const characters =
            Array.from(row, byte => byte >= 0x20 && byte < 0x7f ? String.fromCharCode(byte) : '\u00b7').join('');
        lines.push(`${at.toString(16).padStart(4, '0')}  ${hex.slice(0, 8).join(' ').padEnd(23)}  ${
            hex.slice(8).join(' ').padEnd(23)}  ${characters}`);
    }
    return el('pre', { class: 'bytes', tabindex: 0, role: 'region', 'aria-label': `${bytes.length} bytes` },
        lines.join('\n') || 'none', bytes.length > MOST ? `\n\u2026 ${bytes.length} bytes in all` : '');
}
