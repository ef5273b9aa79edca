"use strict";
// Shows what /events sends: a whole picture first, then what changes.
const token = new URLSearchParams(location.search).get("token");
const address = (path) => path + "?token=" + encodeURIComponent(token);
const find = (id) => document.getElementById(id);

// Told apart by a colour-blind person too, and by dashes where there are more lines than colours.
const colours = ["#0072b2", "#e69f00", "#009e73", "#cc79a7", "#56b4e9", "#d55e00", "#000000"];
const mostRounds = 600;
const mostSamples = 6000;

let rows = [];
let inputs = null; // the chart of the rows, and its data: times, then a list for each row
let inputData = [];
let samples = null;
let sampleData = [[], [], [], []];

function makeChart(place, names, x) {
  const series = names.map((name, i) => ({
    label: name, stroke: colours[i % colours.length], width: 1.5,
    dash: i < colours.length ? undefined : [6, 3], points: { show: false },
  }));
  place.textContent = "";
  return new uPlot({
    width: place.clientWidth || 560, height: 260, series: [x, ...series],
    scales: { x: { time: x.label === "time" } }, axes: [{}, { size: 70 }],
  }, [[], ...names.map(() => [])], place);
}

function fillTable(id, lines) {
  const body = find(id).querySelector("tbody");
  body.replaceChildren(...lines.map((line) => {
    const row = document.createElement("tr");
    for (const text of line) {
      row.insertCell().textContent = text;
    }
    return row;
  }));
  return body;
}

function showValues(values, errors) {
  const body = fillTable("values", rows.map((row, i) => {
    const known = inputData[i + 1].filter((value) => value !== null);
    const least = known.reduce((a, b) => Math.min(a, b), Infinity);
    const most = known.reduce((a, b) => Math.max(a, b), -Infinity);
    return [row.name, values[i] ?? (errors[i] ? "failed" : "acquiring"),
      known.length ? least : "", known.length ? most : "", row.unit];
  }));
  // Each reason stands there once, with the rows that it is about.
  const failures = new Map();
  for (const [i, words] of Object.entries(errors)) {
    body.rows[i].cells[1].className = "error";
    failures.set(words, [...(failures.get(words) ?? []), rows[i].name]);
  }
  find("failures").replaceChildren(...[...failures].map(([words, names]) => {
    const item = document.createElement("li");
    item.textContent = names.join(", ") + ": " + words;
    return item;
  }));
}

function addRound(round) {
  inputData[0].push(round.time);
  rows.forEach((_, i) => inputData[i + 1].push(round.values[i] ?? null));
  if (inputData[0].length > mostRounds) {
    inputData.forEach((list) => list.shift());
  }
}

function showAcquisition(message) {
  find("acquisition").textContent = message.error ? "ended: " + message.error
    : (message.running ? "running" : "not running") +
      (message.samples ? ", " + message.samples + " samples" : "");
  find("acquisition").className = message.error ? "error" : "";
  if (message.running && message.first === 0) {
    sampleData = [[], [], [], []];
  }
  const length = Math.max(0, ...(message.channels ?? []).map((channel) => channel.length));
  for (let i = 0; i < length; i++) {
    sampleData[0].push(message.first + i * message.count / length);
    for (let channel = 0; channel < 3; channel++) {
      sampleData[channel + 1].push(message.channels[channel][i] ?? null);
    }
  }
  const surplus = sampleData[0].length - mostSamples;
  if (surplus > 0) {
    sampleData.forEach((list) => list.splice(0, surplus));
  }
  samples.setData(sampleData);
}

function showTrace(lines, fresh) {
  const trace = find("trace");
  const down = trace.scrollTop + trace.clientHeight >= trace.scrollHeight - 4;
  const kept = fresh ? [] : trace.textContent.split("\n");
  trace.textContent = kept.concat(lines).slice(-200).join("\n");
  trace.dataset.filled = "yes";
  if (down) {
    trace.scrollTop = trace.scrollHeight;
  }
}

const events = new EventSource(address("events"));
events.onopen = () => { find("state").textContent = "live"; };
events.onerror = () => { find("state").textContent = "no connection"; };

events.addEventListener("start", (event) => {
  const start = JSON.parse(event.data);
  rows = start.rows;
  inputData = [[], ...rows.map(() => [])];
  start.history.forEach(addRound);
  sampleData = [[], [], [], []];
  inputs = makeChart(find("inputs"), rows.map((row) => row.name + ", " + row.unit), { label: "time" });
  samples = makeChart(find("samples"), ["channel 0", "channel 1", "channel 2"],
    { label: "sample" });
  inputs.setData(inputData);
  fillTable("drivers", start.drivers.map((d) => [d.id, d.link, d.words,
    d.kind === "simulated" ? "SIMULATED" : d.kind, !d.reachable ? "not reachable" : d.ready ? "ready" : "not ready"]));
  find("reasons").replaceChildren(...start.reasons.map((reason) => {
    const item = document.createElement("li");
    item.textContent = (reason.about ? reason.about + ": " : "") + reason.words;
    return item;
  }));
  find("start").disabled = find("stop").disabled = !start.control;
  showAcquisition(start.acquisition);
  if (start.trace.length) {
    showTrace(start.trace, true);
  }
});

events.addEventListener("round", (event) => {
  const round = JSON.parse(event.data);
  addRound(round);
  inputs.setData(inputData);
  showValues(round.values, round.errors);
});

events.addEventListener("acquisition", (event) => showAcquisition(JSON.parse(event.data)));
events.addEventListener("trace", (event) =>
  showTrace(JSON.parse(event.data), find("trace").dataset.filled !== "yes"));

for (const id of ["start", "stop"]) {
  find(id).addEventListener("click", async () => {
    const answer = await fetch(address(id), { method: "POST" });
    if (!answer.ok) {
      find("acquisition").textContent = await answer.text();
    }
  });
}
