// SPDX-License-Identifier: Apache-2.0
// Server-sent events, read by hand: the browser's own reader cannot send a token.

const MostBuffered = 1 << 20; // characters; a host sends less at a time

/** Name and data of each event in `body`, as they come. Ends when the connection does. */
export async function* eventsIn(body) {
    const reader = body.pipeThrough(new TextDecoderStream()).getReader();
    let name = 'message';
    let data = [];
    let rest = '';
    for (;;) {
        const {value, done} = await reader.read();
        if (done)
            return;
        const lines = (rest + value).split(/\r?\n/);
        rest = lines.pop();
        if (rest.length > MostBuffered)
            throw new Error('this is no stream of events');
        for (const line of lines) {
            if (line.startsWith('event:'))
                name = line.slice(6).trim();
            if (line.startsWith('data:'))
                data.push(line.slice(line[5] === ' ' ? 6 : 5));
            if (line === '' && data.length > 0) {
                yield {name, data: data.join('\n')};
                name = 'message';
                data = [];
            }
        }
    }
}
