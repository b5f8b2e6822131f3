// SPDX-License-Identifier: Apache-2.0
import {confirm} from './dialogs.js';
import {badgeCell, byId, keyedTable, make, makeButton, setAttribute, setText, showButtons, twoLines} from './dom.js';
import {post, Refused} from './door.js';
import {ago, clock, number, span, until} from './words.js';

/** Whether it is no good as it is: a call that was made once, or that somebody has cancelled, has ended well. */
export const isFailing = (entry) => entry.failuresInARow > 0 && !entry.cancelled;

/** The entry that comes next; undefined if none does. */
export function comesNext(schedule) {
    return schedule.filter(({next}) => next).sort((a, b) => Date.parse(a.next) - Date.parse(b.next))[0];
}

export const failureWords = (entry) => `failed ${entry.failuresInARow === 1 ? 'the last time'
                                                                           : `${entry.failuresInARow} times in a row`}`;

function kindOf(entry) {
    if (isFailing(entry))
        return 'bad';
    return entry.state === 'running' ? 'good' : 'plain';
}

/** What can be done to an entry, and in which states. */
const Questions = {
    run: {
        label: 'Run', states: ['waiting'], yes: 'Run it now', done: 'is run',
        text: 'Its call is made now, whenever it is due.',
    },
    cancel: {
        label: 'Cancel', states: ['waiting', 'running'], yes: 'Cancel the entry', done: 'is cancelled',
        text: 'It is not called any more, until it is restarted. A call under way comes to its end.',
    },
    restart: {
        label: 'Restart', states: ['ended'], yes: 'Restart it', done: 'begins once more', text: 'It begins once more.',
    },
};

/** The table of the schedule. `refresh` asks the host once more. */
export function makeSchedule(refresh) {
    const update = keyedTable(byId('schedule-table'), [
        {title: 'Call', kind: 'file', make: twoLines(({url}) => url, ({index}) => `entry ${index}`)},
        {title: 'State', kind: 'state', make: badgeCell(({state}) => state, kindOf, ({ended, lastSkip}) => ended || lastSkip)},
        {title: 'Next', make: twoLines(({next}) => until(next) || 'not due', ({next}) => clock(next))},
        {title: 'Last', make: twoLines(({last}) => ago(last) || 'never yet',
                                       ({last, lastMs}) => (last ? `took ${span(lastMs)}` : ''))},
        {title: 'Calls', kind: 'calls', make: twoLines(({runs}) => number(runs, 'call'), failuresOf)},
        {title: 'Actions', kind: 'actions', make: actionsCell},
    ], {keyOf: ({index}) => index, more: byId('schedule-more'), rowClass: (entry) => isFailing(entry) && 'failing'});

    function failuresOf(entry) {
        const skipped = entry.once ? `${entry.skipped} left to other hosts` : '';
        if (entry.failures === 0)
            return skipped;
        const failed = isFailing(entry) ? `${failureWords(entry)}, ${entry.failures} in all` : `${entry.failures} failed`;
        return skipped ? `${failed}; ${skipped}` : failed;
    }

    function actionsCell() {
        let shown = null;
        const verbs = new Map(Object.entries(Questions).map(([verb, {label}]) =>
            [makeButton(`${label}…`, (opener) => askFor(verb, shown, opener)), verb]));
        return {
            nodes: [make('span', {class: 'buttons'}, ...verbs.keys())],
            update(entry) {
                shown = entry;
                showButtons([...verbs.keys()], (button) => Questions[verbs.get(button)].states.includes(entry.state));
                for (const [button, verb] of verbs) {
                    const {label} = Questions[verb];
                    setAttribute(button, 'aria-label', `${label} entry ${entry.index}, ${entry.url}…`);
                }
            },
        };
    }

    function askFor(verb, {index, url}, opener) {
        const {label, text, yes, done} = Questions[verb];
        confirm({
            title: `${label} ${url}?`, text: `Entry ${index}. ${text}`, yes, opener,
            async act() {
                const entry = await post(`/v1/schedule/${index}/${verb}`);
                refresh();
                if (verb === 'run' && entry.state !== 'running' && entry.lastFailure)
                    throw new Refused(`it was run, and has failed: ${entry.lastFailure}`);
                if (verb === 'run' && entry.lastSkip)
                    throw new Refused(`it was not run: ${entry.lastSkip}`);
                return `Entry ${index}, ${url}, ${done}.`;
            },
        });
    }

    return {
        show({schedule}) {
            const failing = schedule.filter(isFailing).length;
            setText(byId('schedule-count'), schedule.length === 0 ? 'nothing is scheduled'
                : `${number(schedule.length, 'entry', 'entries')}${failing ? `, ${failing} failing` : ''}`);
            update(schedule);
        },
    };
}
