// SPDX-License-Identifier: Apache-2.0
// What an operator should look at, worst first, out of all that is reported.

import {busTrouble} from './bus.js';
import {byId, keyedList, make, makeButton, setAttribute, setText} from './dom.js';
import {failureWords, isFailing} from './schedule.js';
import {isOlder, leftNull, nameOf, versions} from './versions.js';
import {number} from './words.js';

const Most = 12;

/** `{kind, text, file}` each; `file` is that of the plugin which it is about. */
function findings({host, plugins, services, endpoints, schedule, events, bus}) {
    const files = versions(plugins);
    return [
        ...[host].filter(({healthy, loop}) => !healthy && !loop.hangs).map(({reason}) =>
            bad(reason || 'The host is not healthy')),
        ...[host].filter(({loop}) => loop.hangs).map(({loop}) =>
            bad(`The event loop hangs for ${number(Math.round(loop.delayMs / 1000), 'second')}${because(loop.where)}`)),
        ...files.filter(({state}) => state === 'quarantined').map((file) =>
            bad(`${nameOf(file)} is quarantined${because(file.reason)}`, file)),
        ...files.filter(({state, reason}) => state !== 'quarantined' && reason).map((file) =>
            bad(`${nameOf(file)}: ${file.reason}`, file)),
        ...refusals(events, files).map(([file, reason]) => bad(`${file} was refused${because(reason)}`)),
        ...schedule.filter(isFailing).map((entry) =>
            bad(`Entry ${entry.index}, ${entry.url}, ${failureWords(entry)}${because(entry.ended)}`)),
        ...[busTrouble({bus})].filter(Boolean).map((text) => bad(text)),
        ...files.filter(({state}) => state === 'on probation').map((file) =>
            warning(`${nameOf(file)} is on probation`, file)),
        ...files.filter(({left}) => left).map((file) =>
            warning(`${nameOf(file)} has left something behind${because(file.left)}`, file)),
        ...files.filter(isOlder).map((file) =>
            warning(`${nameOf(file)} is an older version, and still in memory`, file)),
        ...files.flatMap((file) => leftNull(file).map(({component, property}) =>
            warning(`${component.class} of ${nameOf(file)} was left without ${property.interface}, in its property ` +
                `“${property.name}”`, file))),
        ...services.filter(({served}) => !served).map((service) =>
            warning(`Nobody serves ${service.interface} any more`)),
        ...endpoints.filter(({alive}) => !alive).map(({url}) => warning(`The endpoint ${url} is gone`)),
    ];
}

/** What was refused, and has not been taken since, is no plugin of which anything else would tell. */
function refusals(events, files) {
    const reasons = new Map();
    for (const {kind, subject, text} of events) {
        reasons.delete(subject);
        if (kind === 'refused')
            reasons.set(subject, text);
    }
    for (const {file, reason} of files)
        reason && reasons.delete(file);
    return [...reasons];
}

const bad = (text, file) => ({kind: 'bad', text, file});
const warning = (text, file) => ({kind: 'warning', text, file});
const because = (text) => (text ? `: ${text}` : '');

/** The list of those things. `openPlugin` shows the detail of a file. */
export function makeAttention(openPlugin) {
    const update = keyedList(byId('attention'), {
        keyOf: ({text}) => text, makeItem, most: Most, more: byId('attention-more'),
    });

    function makeItem({kind, text, file}) {
        const node = make('li', {class: kind}, make('span', {}, text));
        if (file) {
            const button = makeButton('Show', () => openPlugin(file.file));
            setAttribute(button, 'aria-label', `Show ${nameOf(file)}`);
            node.append(button);
        }
        return {node, update() {}};
    }

    return {
        show(report) {
            const all = findings(report);
            setText(byId('attention-count'), all.length || '');
            update(all.length > 0 ? all : [{kind: 'good', text: 'Nothing: all is as it should be.'}]);
        },
    };
}
