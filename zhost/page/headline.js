// SPDX-License-Identifier: Apache-2.0
// Whether the host is healthy, and if not why.

import {byId, factsList, setAttribute, setText} from './dom.js';
import {comesNext} from './schedule.js';
import {versions} from './versions.js';
import {ago, clock, fileName, sentence, span, until} from './words.js';

/** "3 good, 1 on probation": how many of `items` there are of each state. */
function tally(items, stateOf) {
    const counts = new Map();
    for (const item of items)
        counts.set(stateOf(item), (counts.get(stateOf(item)) ?? 0) + 1);
    return [...counts].map(([state, count]) => `${count} ${state}`).join(', ');
}

function nextWords(schedule) {
    const next = comesNext(schedule);
    return next ? `${next.url}, ${until(next.next)}` : 'nothing is due';
}

function factsOf({host, plugins, schedule}) {
    const running = versions(plugins).filter(({isRunning}) => isRunning);
    return [
        ['Versions that run', tally(running, ({state}) => state) || 'none'],
        ['Next call', nextWords(schedule)],
        ['Version', host.version],
        ['Runs since', `${clock(host.since)}, ${ago(host.since)}`],
        ['Process', String(host.process)],
        ['CPU time', span(host.cpuMs)],
        ['Open descriptors', String(host.descriptors)],
        ['Configuration', host.configuration],
    ];
}

/** The word, its colour and a sentence. Nothing in it changes by the second, for it is read out when it changes. */
function stateOf(host) {
    if (host.state === 'stopping')
        return ['stopping', 'warning', sentence(host.reason) || 'The host comes to its end.'];
    if (!host.healthy)
        return ['not healthy', 'bad', sentence(host.reason) || 'The host does not say why.'];
    if (host.state === 'starting')
        return ['starting', 'warning', 'Its plugins are being loaded.'];
    return ['healthy', 'good', `It runs since ${clock(host.since)}.`];
}

export function makeHeadline() {
    const facts = factsList(byId('facts'));

    function tell(word, kind, sentence) {
        setText(byId('state-badge'), word);
        setAttribute(byId('state-badge'), 'class', `badge ${kind}`);
        setText(byId('state-text'), sentence);
        const name = byId('name').textContent;
        document.title = `${word}${name && ` · ${name}`} · zhost`;
    }

    return {
        show(report) {
            const {host} = report;
            setText(byId('name'), fileName(host.configuration).replace(/\.json$/, ''));
            const [word, kind, why] = stateOf(host);
            tell(word, kind, report.isOld ? `${why} It has not told more in time: the rest is older.` : why);
            facts(factsOf(report));
        },
        /** Nobody answers any more; the last who did was at the time `since`, if there was one. */
        showGone(since, why) {
            tell('no answer', 'bad', `${why} It is asked again and again.${
                since ? ` What is below is how it was at ${clock(since)}.` : ''}`);
        },
        showLocked() {
            tell('locked', 'warning', 'The host asks for its token.');
        },
    };
}
