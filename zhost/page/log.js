// SPDX-License-Identifier: Apache-2.0
import {byId, make, setText} from './dom.js';
import {wantToken} from './dialogs.js';
import {send} from './door.js';
import {eventsIn} from './stream.js';
import {clock, number} from './words.js';

const MostKept = 1000; // as many as the host keeps
const MostShown = 300;
const ShortestPauseMs = 1000, LongestPauseMs = 15000;

const Severities = ['emergency', 'alert', 'critical', 'error', 'warning', 'notice', 'info', 'debug'];

const pause = (ms) => new Promise((resolve) => {
    setTimeout(resolve, ms);
});

/** The live log. It follows the host, also into its next life, for as long as the page is open. */
export function makeLog() {
    const list = byId('log-lines');
    const scroll = byId('log-scroll');
    const severity = byId('log-severity');
    const filter = byId('log-filter');
    const toEnd = byId('log-end');
    let kept = [];
    let fresh = []; // those of them that have not been looked at
    let shown = 0; // how many lines the list has
    let isPlanned = false;
    let follows = true; // as long as nobody has scrolled back

    const isWanted = (line) => line.severity <= Number(severity.value) &&
        line.text.toLowerCase().includes(filter.value.toLowerCase());

    /** After a connection was lost the host tells its last lines once more; one that was started anew counts anew. */
    function take(line) {
        const last = kept[kept.length - 1];
        if (last && line.number <= last.number && line.time <= last.time)
            return;
        keep(line);
    }

    /** More lines came than a host keeps for a slow reader. */
    function takeLost(count) {
        const text = `${number(count, 'line')} passed over: they came too fast for this page`;
        keep({number: kept[kept.length - 1]?.number ?? 0, time: new Date().toISOString(), severity: 4, text});
    }

    function keep(line) {
        kept.push(line);
        fresh.push(line);
        if (kept.length > 2 * MostKept) // now and then, rather than with each line
            kept = kept.slice(-MostKept);
        fresh = fresh.length > 2 * MostShown ? fresh.slice(-MostShown) : fresh;
        plan();
    }

    /** Many lines in a row are put into the page at once. */
    function plan() {
        if (isPlanned)
            return;
        isPlanned = true;
        requestAnimationFrame(() => {
            isPlanned = false;
            append(fresh.filter(isWanted));
            fresh = [];
        });
    }

    function append(lines) {
        const added = lines.slice(-MostShown);
        list.append(...added.map(makeLine));
        for (shown += added.length; shown > MostShown; --shown)
            list.firstElementChild.remove();
        followEnd();
        tellCount();
    }

    function showAll() {
        list.replaceChildren();
        shown = 0;
        fresh = [];
        follows = true;
        append(kept.filter(isWanted));
    }

    function tellCount() {
        const isFull = shown === MostShown;
        setText(byId('log-note'), shown === 0 ? 'No line is like that.'
            : `${number(shown, 'line')}${isFull ? ', the last of many' : ''}`);
    }

    function followEnd() {
        if (follows)
            scroll.scrollTop = scroll.scrollHeight;
        toEnd.hidden = follows;
    }

    let connection = new AbortController();

    async function follow() {
        connection = new AbortController();
        const answer = await send('/v1/log?lines=500', {accept: 'text/event-stream', signal: connection.signal});
        setText(byId('log-state'), 'live');
        for await (const {name, data} of eventsIn(answer.body))
            (name === 'lost' ? takeLost : take)(JSON.parse(data));
    }

    async function followForEver() {
        for (let pauseMs = ShortestPauseMs;; pauseMs = Math.min(2 * pauseMs, LongestPauseMs)) {
            const begin = performance.now();
            const error = await follow().catch((thrown) => thrown);
            setText(byId('log-state'), 'waits for the host');
            if (error?.status === 401)
                await wantToken();
            if (performance.now() - begin > LongestPauseMs || error?.status === 401)
                pauseMs = ShortestPauseMs;
            await pause(pauseMs);
        }
    }

    severity.addEventListener('change', showAll);
    filter.addEventListener('input', showAll);
    toEnd.addEventListener('click', () => {
        scroll.focus(); // before the button goes
        follows = true;
        followEnd();
    });
    scroll.addEventListener('scroll', () => {
        follows = scroll.scrollHeight - scroll.scrollTop - scroll.clientHeight < 30;
        toEnd.hidden = follows;
    });
    new ResizeObserver(followEnd).observe(scroll);
    followForEver();
    return {reconnect: () => connection.abort()};
}

function makeLine({time, severity, text}) {
    const word = Severities[severity] ?? String(severity);
    const kind = severity <= 3 ? 'bad' : severity === 4 ? 'warning' : severity === 7 ? 'faint' : 'plain';
    return make('li', {class: kind}, make('time', {datetime: time, title: time}, clock(time)), ' ',
                make('span', {class: 'severity'}, word), ' ', make('span', {class: 'text'}, text));
}
