/** Puts the page together. */

import { BusPanel } from './bus_panel.js';
import { Connection } from './connection.js';
import { Controls } from './controls.js';
import { setText } from './dom.js';
import { listenForKeys } from './keys.js';
import { LightMachine } from './light_machine.js';
import { LoopChart } from './loop_chart.js';
import { Pixels } from './pixels.js';
import { ForOtherPrograms } from './programs.js';
import { Recorder } from './recorder.js';
import { RegistersPanel } from './registers_panel.js';
import { Scopes } from './scopes.js';
import { ServerClock } from './server_clock.js';
import { SimulatedCamera } from './simulated.js';
import { Stage } from './stage.js';
import { StatusBar } from './status_bar.js';
import { Store } from './store.js';
import { Tabs } from './tabs.js';
import { Timeline } from './timeline.js';
import { Tools } from './tools.js';
import { TracePanel } from './trace_panel.js';

const ANNOUNCEMENT = 4000; // milliseconds

const at = (id) => document.getElementById(id);

/** Shows a line for a moment, and has it read out. */
function makeAnnouncer(place) {
  let timer = 0;
  return (text) => {
    setText(place, text);
    place.classList.add('seen');
    clearTimeout(timer);
    timer = setTimeout(() => place.classList.remove('seen'), ANNOUNCEMENT);
  };
}

function addSide(stage, store, connection, announce) {
  const tabs = new Tabs(at('side'), 'Camera');
  new Controls(tabs.add('controls', 'Controls'), stage, store, connection, announce);
  new SimulatedCamera(tabs.add('simulated', 'Simulation'), stage, store, connection, announce);
  new ForOtherPrograms(tabs.add('programs', 'Addresses'), stage, store, announce);
  stage.addEventListener('selected', () => tabs.offer('simulated', stage.camera?.info.kind === 'simulated'));
}

function addDock(stage, store, connection) {
  const tabs = new Tabs(at('dock'), 'Inside the driver');
  const loop = tabs.add('loop', 'Exposure loop');
  new LoopChart(loop, stage, () => tabs.isChosen('loop'));
  new LightMachine(loop, stage, store);
  const bus = new BusPanel(tabs.add('bus', 'Bus'), stage, store, () => tabs.isChosen('bus'));
  tabs.addEventListener('chosen', () => bus.show());
  new RegistersPanel(tabs.add('registers', 'Registers'), stage, store, connection, () => tabs.isChosen('registers'));
  const trace = new TracePanel(tabs.add('trace', 'Trace'), stage, store, connection, () => tabs.isChosen('trace'));
  tabs.addEventListener('chosen', () => trace.ask());
}

function start() {
  const announce = makeAnnouncer(at('announcements'));
  const connection = new Connection(`${location.origin.replace(/^http/, 'ws')}/live`);
  const clock = new ServerClock(connection);
  const store = new Store(connection);
  const stage = new Stage(at('pictures'), store, connection, clock);
  const recorder = new Recorder(stage, store, connection, announce);
  const tools = new Tools(at('tools'), stage, store, recorder, { connection, announce });
  new StatusBar({ identity: at('identity'), figures: at('figures'), link: at('link') }, stage, store, connection);
  new Timeline(at('timeline'), stage, store, connection);
  new Scopes(at('scopes'), stage);
  new Pixels(at('scopes'), stage, connection);
  addSide(stage, store, connection, announce);
  addDock(stage, store, connection);
  listenForKeys(stage, tools, recorder, at('help-button'));
  connection.open();
}

start();
