// Which steps of two runs belong together: of the same phase and name, in order; runs of different plans, or one that
// ended early, have steps that the other has not.

const key = step => `${step.phase ?? ''}\n${step.name}`;
const MOST = 2000; // steps; the table of lengths grows with the square

const result = step => step.measured ?? step.answer ?? '';

// In what they differ: 'verdict', 'value' or nothing.
export function differ(a, b) {
    if (!a || !b || a.verdict !== b.verdict)
        return 'verdict';
    return result(a) === result(b) ? '' : 'value';
}

// The longest sequence of steps that both have; where there are too many, step by step.
export function align(first, second) {
    const pairs = [];
    const add = (a, b) => pairs.push({ a, b, differs: differ(a, b) });
    let begin = 0;
    while (begin < first.length && begin < second.length && key(first[begin]) === key(second[begin])) {
        add(first[begin], second[begin]);
        ++begin;
    }
    const a = first.slice(begin), b = second.slice(begin);
    if (a.length > MOST || b.length > MOST) {
        a.forEach(step => add(step, null));
        b.forEach(step => add(null, step));
        return pairs;
    }
    const lengths = Array.from({ length: a.length + 1 }, () => new Uint16Array(b.length + 1));
    for (let i = a.length - 1; i >= 0; --i) {
        for (let j = b.length - 1; j >= 0; --j)
            lengths[i][j] =
                key(a[i]) === key(b[j]) ? lengths[i + 1][j + 1] + 1 : Math.max(lengths[i + 1][j], lengths[i][j + 1]);
    }
    let i = 0, j = 0;
    while (i < a.length || j < b.length) {
        if (i < a.length && j < b.length && key(a[i]) === key(b[j]))
            add(a[i++], b[j++]);
        else if (j === b.length || (i < a.length && lengths[i + 1][j] >= lengths[i][j + 1]))
            add(a[i++], null);
        else
            add(null, b[j++]);
    }
    return pairs;
}
