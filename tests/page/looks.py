"""What holds of every view, whoever looks at it and however: names, contrast, keyboard, nothing by colour alone."""

# Texts that are seen, each with the contrast to what is behind it (WCAG 2: 4.5, 3 for large ones).
CONTRAST = r'''
const canvas = document.createElement('canvas').getContext('2d', {willReadFrequently: true});
const known = new Map();
function rgba(color) {
    if (!known.has(color))
        known.set(color, drawn(color));
    return known.get(color);
}
function drawn(color) {
    canvas.clearRect(0, 0, 1, 1);
    canvas.fillStyle = '#000';
    canvas.fillStyle = color;
    canvas.fillRect(0, 0, 1, 1);
    const [r, g, b, a] = canvas.getImageData(0, 0, 1, 1).data;
    return [r, g, b, a / 255];
}
const over = (top, below) => [0, 1, 2].map(i => top[i] * top[3] + below[i] * (1 - top[3])).concat(1);
const grounds = new Map([[null, [255, 255, 255, 1]]]);
function behind(element) {
    if (!grounds.has(element))
        grounds.set(element, over(rgba(getComputedStyle(element).backgroundColor), behind(element.parentElement)));
    return grounds.get(element);
}
const linear = x => x <= 0.03928 ? x / 12.92 : ((x + 0.055) / 1.055) ** 2.4;
const light = color => [0.2126, 0.7152, 0.0722].reduce((sum, weight, i) => sum + weight * linear(color[i] / 255), 0);
const ratio = (a, b) => { const [x, y] = [light(a), light(b)].sort((p, q) => q - p); return (x + 0.05) / (y + 0.05); };
const poor = [];
let count = 0;
const walk = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
while (walk.nextNode()) {
    const element = walk.currentNode.parentElement;
    const text = walk.currentNode.textContent.trim();
    if (!text || !element.checkVisibility({visibilityProperty: true}) || element.closest('.unseen, .skip, noscript, :disabled'))
        continue;
    const style = getComputedStyle(element), size = parseFloat(style.fontSize);
    const ground = behind(element), ink = over(rgba(style.color), ground);
    const wanted = size >= 24 || (size >= 18.66 && Number(style.fontWeight) >= 700) ? 3 : 4.5;
    ++count;
    if (ratio(ink, ground) < wanted)
        poor.push(`${ratio(ink, ground).toFixed(2)} of "${text.slice(0, 40)}" (${element.className || element.tagName})`);
}
return [count, [...new Set(poor)]];
'''

# What one should get to with Tab: everything that can be operated, once each (of radio buttons a group).
STOPS = r'''
return [...document.querySelectorAll('a[href], button, input, select, textarea, summary, [tabindex="0"]')]
    .filter(one => one.checkVisibility({visibilityProperty: true}) && !one.disabled)
    .map((one, index) => { one.dataset.stop = index; return index; });
'''

# Where a verdict is told by a colour there is its word, and its shape beside it.
BARE = r'''
const told = [...document.querySelectorAll('.verdict-badge, .small, .tile[data-phase="shows"] .state')];
const bare = told.filter(one => !/[A-Za-z]{4}/.test(one.textContent) || !one.querySelector('svg.shape path'));
return [told.length, bare.map(one => one.outerHTML.slice(0, 200))];
'''

OPERATED = (
    'button',
    'link',
    'textbox',
    'searchbox',
    'combobox',
    'checkbox',
    'progressbar',
    'group',
    'image',
    'img',
    'navigation',
    'DateTime',
    'Date',
)
KEYS_AT_ONCE = 12
NAMELESS_GROUPS = ('group', 'image')  # which may be the browser's own, inside its controls


def nameless(browser):
    nodes = browser.devtools('Accessibility.getFullAXTree')['nodes']
    found = [node for node in nodes if not node.get('ignored') and node.get('role', {}).get('value') in OPERATED]
    return len(found), [
        node['role']['value']
        for node in found
        if not node.get('name', {}).get('value', '').strip() and node['role']['value'] not in NAMELESS_GROUPS
    ]


def unreached(browser, tab):
    """The stops that Tab does not come by, from the page's beginning to its end, and those where nothing shows the focus."""
    stops = set(browser.js(STOPS))
    browser.js(
        '''document.activeElement.blur();
        document.body.tabIndex = -1;
        document.body.focus();
        document.body.removeAttribute('tabindex');'''
    )
    browser.js(
        '''window.stops = [];
        document.addEventListener('focusin', () => {
            const style = getComputedStyle(document.activeElement);
            const shown = parseFloat(style.outlineWidth) >= 2 && style.outlineStyle !== 'none';
            window.stops.push([Number(document.activeElement.dataset.stop ?? -1), shown]);
        });'''
    )
    seen, hidden = set(), []
    for _ in range(0, 2 * len(stops) + 30, KEYS_AT_ONCE):
        browser.keys(tab * KEYS_AT_ONCE)
        reached = browser.js('return window.stops')
        seen = {at for at, _ in reached if at >= 0}
        hidden = sorted({at for at, shown in reached if at >= 0 and not shown})
        if len(seen) == len(stops):
            break
    describe = 'return document.querySelector(`[data-stop="${arguments[0]}"]`)?.outerHTML.slice(0, 160)'
    return (
        len(stops),
        [browser.js(describe, stop) for stop in sorted(stops - seen)],
        [browser.js(describe, stop) for stop in hidden],
    )


def check(browser, name, expect, keyboard, tab):
    """All of it for the view that is shown."""
    count, without = nameless(browser)
    expect(count > 3 and not without, f'{name}: controls without a name: {without}')
    for dark in (False, True):
        browser.dark(dark)
        count, poor = browser.js(CONTRAST)
        expect(count > 5 and not poor, f'{name}, {"dark" if dark else "light"}: poor contrast: {poor}')
    browser.dark(False)
    _, bare = browser.js(BARE)
    expect(not bare, f'{name}: by colour alone: {bare}')
    if keyboard:
        count, missed, hidden = unreached(browser, tab)
        expect(count > 5 and not missed, f'{name}: not reached by Tab: {missed}')
        expect(not hidden, f'{name}: the focus does not show: {hidden}')
    for width, height in ((390, 844), (1920, 1080)):
        browser.size(width, height)
        wide = browser.js('return document.documentElement.scrollWidth - innerWidth')
        expect(wide <= 0, f'{name}: {wide} pixels too wide for {width}')
