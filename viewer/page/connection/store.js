/** What the server has told of its cameras. */

const LOOP_KEPT = 600; // seconds
const BUS_KEPT = 600;
const EVENTS_KEPT = 200;
const TRACE_KEPT = 5000; // lines

/** @typedef {{at: number, luminance: number, target: number, low: number, high: number, exposure: number,
 *   exposureLines: number, coarseGain: number, fineGain: number, light: string, wrote: boolean}} LoopStep
 *   `at` is in seconds of performance.now(): stream time begins anew with each stream */

/** One camera: what the server says of it, and what has happened in it. */
export class Camera {
  constructor(info) {
    this.info = info;
    /** @type {LoopStep[]} */
    this.loop = [];
    this.bus = [];
    this.recoveries = [];
    this.registers = new Map();
    this.trace = [];
    this.traceSkipped = 0;
    this.position = 0;
    this.totals = { good: 0, short: 0, long: 0, discarded: 0, errors: 0, reasons: new Map() };
  }

  get number() {
    return this.info.camera;
  }
}

/**
 * Events: `hello`, `viewers`, and with the camera's number as detail `camera`, `controls`, `loop`, `bus`, `recovery`,
 * `registers`, `trace`, `position`.
 */
export class Store extends EventTarget {
  /** @param {import('./connection.js').Connection} connection */
  constructor(connection) {
    super();
    /** @type {Map<number, Camera>} */
    this.cameras = new Map();
    this.hello = null;
    this.viewers = 0;
    connection.addEventListener('message', (event) => this.take(event.detail));
  }

  take(message) {
    for (const [kind, value] of Object.entries(message)) {
      const apply = APPLY[kind];
      if (apply) apply(this, value);
    }
  }

  /** @param {string} kind @param {number} [camera] */
  tell(kind, camera) {
    this.dispatchEvent(new CustomEvent(kind, { detail: camera }));
  }
}

const APPLY = {
  hello(store, hello) {
    store.hello = hello;
    const known = store.cameras;
    store.cameras = new Map(hello.cameras.map((info) => [info.camera, cameraFor(known, info)]));
    store.tell('hello');
  },
  viewers(store, count) {
    store.viewers = count;
    store.tell('viewers');
  },
  camera: (store, info) =>
    change(store, 'camera', info, (camera) => {
      camera.info = info;
    }),
  controls: (store, change_) =>
    change(store, 'controls', change_, (camera) => {
      camera.info.controls = change_.rows;
    }),
  loop: (store, step) => change(store, 'loop', step, (camera) => addTimed(camera.loop, step, LOOP_KEPT)),
  bus: (store, second) => change(store, 'bus', second, (camera) => addSecond(camera, second)),
  recovery: (store, event) =>
    change(store, 'recovery', event, (camera) => {
      camera.recoveries.push({ ...event, at: now() });
      limit(camera.recoveries, EVENTS_KEPT);
    }),
  registers: (store, batch) => change(store, 'registers', batch, (camera) => addRegisters(camera, batch.changed)),
  trace: (store, batch) =>
    change(store, 'trace', batch, (camera) => {
      camera.trace.push(...batch.lines);
      camera.traceSkipped += batch.skipped ?? 0;
      limit(camera.trace, TRACE_KEPT);
    }),
  position: (store, place) =>
    change(store, 'position', place, (camera) => {
      camera.position = place.seconds;
    }),
};

/** What is known of a camera outlives a lost connection. */
function cameraFor(known, info) {
  const camera = [...known.values()].find((other) => other.info.address === info.address) ?? new Camera(info);
  camera.info = info;
  return camera;
}

function change(store, kind, message, apply) {
  const camera = store.cameras.get(message.camera);
  if (!camera) return;
  apply(camera);
  store.tell(kind, message.camera);
}

function now() {
  return performance.now() / 1000;
}

function addTimed(list, entry, seconds) {
  list.push({ ...entry, at: now() });
  let old = 0;
  while (list[old].at < now() - seconds) old += 1;
  if (old > list.length / 8) list.splice(0, old);
}

function addSecond(camera, second) {
  addTimed(camera.bus, second, BUS_KEPT);
  for (const name of ['good', 'short', 'long', 'discarded', 'errors']) camera.totals[name] += second[name] ?? 0;
  for (const [reason, count] of Object.entries(second.reasons ?? {})) {
    camera.totals.reasons.set(reason, (camera.totals.reasons.get(reason) ?? 0) + count);
  }
}

function addRegisters(camera, changed) {
  const isFirst = camera.registers.size === 0;
  for (const register of changed) {
    const key = `${register.chip} ${register.address}`;
    const known = camera.registers.get(key);
    if (known?.value === register.value) continue;
    const changedAt = known || !isFirst ? now() : -Infinity;
    camera.registers.set(key, { ...register, changedAt, before: known?.value });
  }
}

function limit(list, most) {
  if (list.length > most) list.splice(0, list.length - most);
}
