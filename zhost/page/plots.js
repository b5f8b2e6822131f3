// SPDX-License-Identifier: Apache-2.0
// Small plots of the last quarter of an hour. The page keeps their figures, since the host does not.

import {make, makeSvg, setAttribute, setText} from './dom.js';
import {shareSince} from './wiring.js';
import {bytes, span} from './words.js';

const WindowMs = 15 * 60 * 1000;
const LeastMs = 60 * 1000; // a young page shows that much
const MostPoints = 450; // one each two seconds
const Width = 300, Height = 56;

const Figures = [
    {title: 'Memory', of: ({host}) => host.residentBytes, words: bytes},
    {title: 'Threads', of: ({host}) => host.threads, words: String},
    {title: 'CPU', of: (sample) => sample.cpu, words: (value) => `${value.toFixed(value < 10 ? 1 : 0)} %`},
    {title: 'Loop delay', of: ({host}) => host.loop.delayMs, words: span},
];

/** `points` in runs without a gap, as `[x, y]` each. A null value is a gap: nobody has answered then. */
function runsOf(points, now, spanMs, most) {
    const runs = [[]];
    for (const {at, value} of points) {
        if (value === null)
            runs.push([]);
        else
            runs[runs.length - 1].push([Width * (1 - (now - at) / spanMs), Height - (Height - 3) * value / most - 1]);
    }
    return runs.filter((run) => run.length > 0);
}

const lineOf = (run) => `M${run.map(([x, y]) => `${x.toFixed(1)} ${y.toFixed(1)}`).join('L')}h0`;

const areaOf = (run) => `${lineOf(run)}V${Height}H${run[0][0].toFixed(1)}Z`;

const rangeWords = (least, most) => (least === most ? `${most} for` : `${least} to ${most} in`);

function makePlot({title, words}) {
    const area = makeSvg('path', {class: 'area'});
    const line = makeSvg('path', {class: 'line'});
    const viewBox = `0 0 ${Width} ${Height}`;
    const svg = makeSvg('svg', {viewBox, preserveAspectRatio: 'none', role: 'img'}, area, line);
    const value = make('span', {class: 'value'});
    const range = make('span', {class: 'note'});
    const node = make('div', {class: 'card plot'}, make('h3', {}, title), value, svg, range);
    let points = [];
    return {
        node,
        add(point) {
            points = [...points.filter(({at}) => point.at - at <= WindowMs), point].slice(-MostPoints);
            const values = points.map((one) => one.value).filter((one) => one !== null);
            if (values.length === 0)
                return;
            const [least, most] = [Math.min(...values), Math.max(...values)];
            setText(value, point.value === null ? 'not known' : words(point.value));
            const spanMs = Math.max(LeastMs, point.at - points[0].at);
            const runs = runsOf(points, point.at, spanMs, Math.max(most * 1.15, 1));
            const seconds = Math.max(1, Math.round((point.at - points[0].at) / 1000));
            setText(range, `${rangeWords(words(least), words(most))} ${span(1000 * seconds)}`);
            setAttribute(line, 'd', runs.map(lineOf).join(''));
            setAttribute(area, 'd', runs.map(areaOf).join(''));
            setAttribute(svg, 'aria-label', `${title}: ${range.textContent}, now ${value.textContent}`);
        },
    };
}

export function makePlots(parent) {
    const plots = Figures.map((figure) => ({...figure, plot: makePlot(figure)}));
    parent.append(...plots.map(({plot}) => plot.node));
    let before = null; // the CPU time of the process, and when that was asked
    return {
        /** Takes the figures of `host`; or those of nobody, where it has not answered. */
        add(host) {
            const at = performance.now();
            const cpu = host ? shareSince(before, host.cpuMs, at) : null;
            before = host && {cpuMs: host.cpuMs, at};
            for (const {of, plot} of plots)
                plot.add({at, value: host ? of({host, cpu}) : null});
        },
    };
}
