// Charts, drawn by Chart.js, which is loaded when the first one is wanted. What a chart shows stands beside it in words
// or in a table, so the drawing is for the eye alone.
import {el} from './dom.js';

let loading = null;

function library() {
    loading ??= new Promise((done, failed) => {
        const script = document.createElement('script');
        script.src = '/chart.js';
        script.onload = () => done(window.Chart);
        script.onerror = () => {
            loading = null;
            failed(new Error('The charts cannot be drawn: /chart.js is not there.'));
        };
        document.head.append(script);
    });
    return loading;
}

// The page's own colours, as they are now.
export function colours() {
    const style = getComputedStyle(document.documentElement);
    const names = ['ink', 'muted', 'rule', 'surface', 'accent', 'accent-soft', 'pass', 'fail', 'mark'];
    return Object.fromEntries(names.map(name => [name.replace('-s', 'S'), style.getPropertyValue(`--${name}`).trim()]));
}

// Lines at values of the x or y axis: [{axis, value, label, colour, dash, row}]; `row` keeps labels apart. They are
// kept in sight by the scales.
const rules = {
    id: 'rules',
    afterDatasetsDraw(chart) {
        const { ctx, chartArea: area, options } = chart;
        ctx.save();
        ctx.font = `600 12px ${chart.config.options.font.family}`;
        for (const rule of options.plugins.rules?.lines ?? []) {
            const scale = chart.scales[rule.axis], at = scale.getPixelForValue(rule.value);
            ctx.strokeStyle = ctx.fillStyle = rule.colour;
            ctx.lineWidth = 1.5;
            ctx.setLineDash(rule.dash ?? []);
            ctx.beginPath();
            if (rule.axis === 'x') {
                if (at < area.left - 1 || at > area.right + 1)
                    continue;
                ctx.moveTo(at, area.top);
                ctx.lineTo(at, area.bottom);
                ctx.stroke();
                ctx.textAlign = at > (area.left + area.right) / 2 ? 'right' : 'left';
                ctx.fillText(
                    rule.label, at + (ctx.textAlign === 'right' ? -4 : 4), area.top + 11 + 15 * (rule.row ?? 0));
            } else {
                if (at < area.top - 1 || at > area.bottom + 1)
                    continue;
                ctx.moveTo(area.left, at);
                ctx.lineTo(area.right, at);
                ctx.stroke();
                ctx.textAlign = 'left';
                ctx.fillText(rule.label, area.left + 4, at < area.top + 16 ? at + 13 : at - 4);
            }
        }
        ctx.restore();
    },
};

// A place for a chart; draw() replaces what it shows.
export class Drawing {
    constructor(label) {
        this.canvas = el('canvas', { role: 'img', 'aria-label': label });
        this.element = el('div', { class: 'chart' }, this.canvas);
        this.chart = null;
        this.turn = 0;
        this.last = null;
        this.dark = matchMedia('(prefers-color-scheme: dark)');
        this.redraw = () => this.last && this.draw(...this.last);
        this.dark.addEventListener('change', this.redraw);
    }

    // `make` gets the colours and gives Chart.js' configuration; `label` tells in words what is to be seen.
    async draw(make, label) {
        this.last = [make, label];
        const turn = ++this.turn;
        const Chart = await library();
        if (turn !== this.turn || !this.canvas.isConnected)
            return;
        const colour = colours();
        const configuration = make(colour);
        this.canvas.setAttribute('aria-label', label);
        this.chart?.destroy();
        const axis = {
            grid: { color: colour.rule, drawBorder: false, tickLength: 0 },
            ticks: { color: colour.muted, padding: 6, maxRotation: 0, autoSkipPadding: 14 },
            title: { color: colour.muted }
        };
        const scales = configuration.options?.scales ?? {};
        for (const scale of Object.values(scales)) {
            scale.grid = {...axis.grid, ...scale.grid };
            scale.ticks = {...axis.ticks, ...scale.ticks };
            scale.title = {...axis.title, ...scale.title };
        }
        this.chart = new Chart(this.canvas, {
            ...configuration,
            options: {
                animation: false,
                responsive: true,
                maintainAspectRatio: false,
                normalized: true,
                locale: 'en',
                interaction: { mode: 'index', intersect: false },
                font: { family: getComputedStyle(document.body).fontFamily, size: 12 },
                ...configuration.options,
                plugins: { legend: { display: false }, ...configuration.options?.plugins },
            },
            plugins: [rules],
        });
    }

    leave() {
        ++this.turn;
        this.last = null;
        this.chart?.destroy();
        this.dark.removeEventListener('change', this.redraw);
    }
}
