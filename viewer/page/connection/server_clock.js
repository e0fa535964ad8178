/** The server's clock, as seen from here: what a frame's latency is measured with. */

const PERIOD = 2000; // milliseconds between two questions
const KEPT = 16; // half a minute: clocks drift little in it

export class ServerClock {
  /** @param {import('./connection.js').Connection} connection */
  constructor(connection) {
    this.connection = connection;
    this.samples = [];
    connection.addEventListener('link', (event) => this.linkChanged(event.detail.state));
    connection.addEventListener('message', (event) => event.detail.clock && this.take(event.detail.clock));
    setInterval(() => this.question(), PERIOD);
  }

  /** Milliseconds on the server's clock, now; NaN until it is known. */
  now() {
    return performance.now() + this.offset();
  }

  /** By the quickest question of late: the slower ones waited somewhere on their way. */
  offset() {
    if (this.samples.length === 0) return NaN;
    return this.samples.reduce((best, sample) => (sample.trip < best.trip ? sample : best)).offset;
  }

  /** Of the quickest question: half of it is the most that the clock can be wrong by. */
  trip() {
    return Math.min(...this.samples.map((sample) => sample.trip));
  }

  linkChanged(state) {
    if (state !== 'open') return;
    this.samples = [];
    for (let time = 0; time < 400; time += 100) setTimeout(() => this.question(), time);
  }

  question() {
    if (!document.hidden) this.connection.send({ do: 'clock', sent: performance.now() });
  }

  take({ sent, server }) {
    const received = performance.now();
    this.samples.push({ trip: received - sent, offset: server - (sent + received) / 2 });
    if (this.samples.length > KEPT) this.samples.shift();
  }
}
