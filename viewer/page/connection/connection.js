/** The WebSocket to the server: messages, answers, frames, and a new connection when one is lost. */

const FIRST_RETRY = 0.5; // seconds
const LAST_RETRY = 5;
const ANSWER_LIMIT = 10;

/**
 * Events: `link` (detail: {state: 'connecting'|'open'|'lost'|'ended', seconds}), `message` (detail: the object),
 * `frame` (detail: {header, picture}).
 */
export class Connection extends EventTarget {
  /** @param {string} address of the WebSocket */
  constructor(address) {
    super();
    this.address = address;
    this.socket = null;
    this.waiting = new Map();
    this.lastId = 0;
    this.retry = FIRST_RETRY;
    this.timer = 0;
  }

  /** Connects, now. */
  open() {
    clearTimeout(this.timer);
    this.announce('connecting');
    this.socket = new WebSocket(this.address);
    this.socket.binaryType = 'arraybuffer';
    this.socket.addEventListener('open', () => this.opened());
    this.socket.addEventListener('close', () => this.closed());
    this.socket.addEventListener('message', (event) => this.received(event.data));
  }

  get isOpen() {
    return this.socket?.readyState === WebSocket.OPEN;
  }

  /** Sends a message that needs no answer; without a connection it is dropped. @param {object} message */
  send(message) {
    if (this.isOpen) this.socket.send(JSON.stringify(message));
  }

  /**
   * Sends a message and gives its answer; rejects with the server's reason.
   * @param {object} message
   * @returns {Promise<any>}
   */
  ask(message) {
    if (!this.isOpen) return Promise.reject(new Error('no connection to the program'));
    this.lastId += 1;
    const id = this.lastId;
    this.send({ ...message, id });
    return new Promise((resolve, reject) => {
      const timer = setTimeout(() => this.settle({ answer: id, error: 'no answer' }), ANSWER_LIMIT * 1000);
      this.waiting.set(id, { resolve, reject, timer });
    });
  }

  opened() {
    this.retry = FIRST_RETRY;
    this.announce('open');
  }

  closed() {
    for (const id of [...this.waiting.keys()]) this.settle({ answer: id, error: 'the connection was lost' });
    const seconds = this.retry;
    this.retry = Math.min(LAST_RETRY, 2 * this.retry);
    this.announce('lost', seconds);
    this.timer = setTimeout(() => this.openUnlessRefused(), seconds * 1000);
  }

  /** A program that was started anew has another session: connecting again would fail for ever. */
  async openUnlessRefused() {
    try {
      const page = await fetch('/', { cache: 'no-store' });
      if (page.status === 401 || page.status === 403) this.announce('ended');
      else this.open();
    } catch {
      this.closed();
    }
  }

  received(data) {
    if (typeof data === 'string') this.receivedText(JSON.parse(data));
    else this.dispatch('frame', readFrame(data));
  }

  receivedText(message) {
    if ('answer' in message) this.settle(message);
    else this.dispatch('message', message);
  }

  settle(answer) {
    const waiting = this.waiting.get(answer.answer);
    if (!waiting) return;
    this.waiting.delete(answer.answer);
    clearTimeout(waiting.timer);
    if (answer.error) waiting.reject(new Error(answer.error));
    else waiting.resolve(answer);
  }

  announce(state, seconds = 0) {
    this.dispatch('link', { state, seconds });
  }

  dispatch(name, detail) {
    this.dispatchEvent(new CustomEvent(name, { detail }));
  }
}

/** @param {ArrayBuffer} data length of the header, header, JPEG */
function readFrame(data) {
  const length = new DataView(data).getUint32(0, true);
  const header = JSON.parse(new TextDecoder().decode(new Uint8Array(data, 4, length)));
  return { header, picture: new Blob([new Uint8Array(data, 4 + length)], { type: 'image/jpeg' }) };
}
