// SPDX-License-Identifier: Apache-2.0
import {byId, keyedList, make, setAttribute, setText} from './dom.js';
import {ago, clock, fileName} from './words.js';

const Most = 80;

const Kinds = {
    loaded: 'good', good: 'good', refused: 'bad', 'taken back': 'bad', stays: 'warning', withdrawn: 'warning',
    ended: 'warning',
};

const Choices = {
    versions: ['dropped', 'loaded', 'unloaded', 'refused', 'good', 'taken back', 'stays'],
    services: ['announced', 'exchanged', 'withdrawn'],
    trouble: ['refused', 'taken back', 'stays', 'withdrawn', 'ended'],
};

function makeEvent({time, kind, subject, text}) {
    const when = make('time', {datetime: time, title: clock(time)});
    const node = make('li', {class: Kinds[kind] ?? 'plain'}, when, make('span', {class: 'what'},
        make('span', {class: 'kind'}, kind), ' ', make('span', {class: 'subject', title: subject}, fileName(subject))));
    if (text)
        node.append(make('span', {class: 'second'}, text));
    return {node, update: () => setText(when, ago(time))};
}

/** The time line of what has happened to plugins and services, the newest first. */
export function makeEvents() {
    let events = [];
    const kinds = byId('lately-kinds');
    const list = byId('events');
    const update = keyedList(list, {
        keyOf: ({number, time}) => `${number} ${time}`, // a host that was started anew counts anew
        makeItem: makeEvent, most: Most, more: byId('events-more'),
    });

    function show(report) {
        ({events} = report);
        const chosen = Choices[kinds.value];
        const shown = events.filter(({kind}) => !chosen || chosen.includes(kind)).reverse();
        update(shown);
        setAttribute(list, 'data-empty', shown.length === 0 ? 'Nothing has happened' : null);
    }

    kinds.addEventListener('change', () => show({events}));
    return {show};
}
