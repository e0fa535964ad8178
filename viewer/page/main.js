/** Puts the page together. */

import { BusPanel } from './panels/bus_panel.js';
import { Connection } from './connection/connection.js';
import { Controls } from './panels/controls.js';
import { setText } from './base/dom.js';
import { listenForKeys } from './picture/keys.js';
import { LightMachine } from './panels/light_machine.js';
import { LoopChart } from './panels/loop_chart.js';
import { Pixels } from './picture/pixels.js';
import { ForOtherPrograms } from './panels/programs.js';
import { Recorder } from './picture/recorder.js';
import { RegistersPanel } from './panels/registers_panel.js';
import { Scopes } from './picture/scopes.js';
import { ServerClock } from './connection/server_clock.js';
import { SimulatedCamera } from './panels/simulated.js';
import { Stage } from './picture/stage.js';
import { StatusBar } from './panels/status_bar.js';
import { Store } from './connection/store.js';
import { Tabs } from './panels/tabs.js';
import { Timeline } from './picture/timeline.js';
import { Tools } from './picture/tools.js';
import { TracePanel } from './panels/trace_panel.js';

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
