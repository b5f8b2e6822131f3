// SPDX-License-Identifier: Apache-2.0
// Times and figures as people read them.

const Second = 1000, Minute = 60 * Second, Hour = 60 * Minute, Day = 24 * Hour;

/** "3 min", of a time span. */
export function span(ms) {
    if (ms < 1)
        return '0 ms';
    if (ms < Second)
        return `${Math.round(ms)} ms`;
    if (ms < 10 * Second && ms % Second !== 0)
        return `${(ms / Second).toFixed(1)} s`;
    return longSpan(ms);
}

function longSpan(ms) {
    if (ms < Minute)
        return `${Math.floor(ms / Second)} s`;
    if (ms < Hour)
        return `${Math.floor(ms / Minute)} min`;
    if (ms < 2 * Day)
        return `${Math.floor(ms / Hour)} h`;
    return `${Math.floor(ms / Day)} days`;
}

let ahead = 0; // milliseconds of the host's clock before this machine's

/** From now on times are told by the clock of the host, where it is `time`. */
export function setHostTime(time) {
    ahead = Date.parse(time) - Date.now() || 0;
}

const hostNow = () => Date.now() + ahead;

/** "3 min ago", of a time as the host tells it; empty for an empty one. */
export function ago(time) {
    const ms = hostNow() - Date.parse(time);
    if (Number.isNaN(ms))
        return '';
    return ms < Second ? 'just now' : `${longSpan(ms)} ago`;
}

/** "in 3 min". */
export function until(time) {
    const ms = Date.parse(time) - hostNow();
    if (Number.isNaN(ms))
        return '';
    return ms < Second ? 'now' : `in ${longSpan(ms)}`;
}

/** "14:03:07", and the day before it unless it is today. */
export function clock(time) {
    const date = new Date(time);
    if (Number.isNaN(date.getTime()))
        return '';
    const two = (number) => String(number).padStart(2, '0');
    const hours = `${two(date.getHours())}:${two(date.getMinutes())}:${two(date.getSeconds())}`;
    const isToday = date.toDateString() === new Date().toDateString();
    return isToday ? hours : `${date.getFullYear()}-${two(date.getMonth() + 1)}-${two(date.getDate())} ${hours}`;
}

export function bytes(count) {
    const units = ['B', 'KiB', 'MiB', 'GiB', 'TiB'];
    let unit = 0;
    for (; count >= 1024 && unit < units.length - 1; ++unit)
        count /= 1024;
    return `${unit === 0 || count >= 100 ? Math.round(count) : count.toFixed(1)} ${units[unit]}`;
}

/** "1 plugin", "2 plugins". */
export function number(count, one, many = `${one}s`) {
    return `${count} ${count === 1 ? one : many}`;
}

/** The name of the file at a path; anything else as it is, an address such as //report/nightly, too. */
export const fileName = (path) => (/^\/[^/]/.test(path) ? path.slice(path.lastIndexOf('/') + 1) : path);

/** "Clock of libclock.2.so", or of the host itself. */
export const classOf = (name, file) => (file ? `${name} of ${fileName(file)}` : name);

/** The host's reasons have no capital, and no full stop. */
export const sentence = (text) => (text ? `${text[0].toUpperCase()}${text.slice(1)}.` : '');
