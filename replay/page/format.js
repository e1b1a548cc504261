// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Numbers with their units, names as a page may show them, and elements made from both. Whatever
// comes out of the recording enters the page as text, never as markup.

const NS_PER_MS = 1e6;
const NS_PER_S = 1e9;

const isKnown = (value) => value !== null && value !== undefined && !Number.isNaN(value);

// Fixed digits, a real minus, and no minus before a zero.
function fixed(value, digits) {
  const text = Math.abs(value).toFixed(digits);
  return value < 0 && Number(text) !== 0 ? `\u2212${text}` : text;
}

const millis = (ns, digits = 2) => `${fixed(ns / NS_PER_MS, digits)}\u00a0ms`;
const seconds = (ns, digits = 3) => `${fixed(ns / NS_PER_S, digits)}\u00a0s`;
const hertz = (periodNs) => `${fixed(NS_PER_S / periodNs, 1)}\u00a0Hz`;
const percent = (share, digits = 1) => `${fixed(100 * share, digits)}\u00a0%`;
const plural = (count, noun) => `${count}\u00a0${noun}${count === 1 ? '' : 's'}`;
const counted = (count) => count.toLocaleString('en-US').replace(/,/g, '\u202f');

// A figure's value as the text report shows it.
function figureText(figure, value) {
  switch (figure.unit) {
    case 'ns': return millis(value);
    case 'count': return fixed(value, 0);
    case 'per second': return `${fixed(value, 2)}/s`;
    default: return fixed(value, 2);
  }
}

// A signed difference; "=" where the table rounds it away.
function differenceText(figure, difference) {
  if (Math.abs(difference) < figure.resolution / 2) return '=';
  return (difference > 0 ? '+' : '') + figureText(figure, difference);
}

// 'worse', 'better' or '' by what the figure wants.
function judgement(figure, value, other) {
  const difference = value - other;
  if (figure.better === 'neither' || Math.abs(difference) < figure.resolution / 2) return '';
  return (difference < 0) === (figure.better === 'lower') ? 'better' : 'worse';
}

// Characters that would not show, or that would turn or hide what stands beside them.
const INVISIBLE = /[\p{Cc}\p{Cf}\p{Zl}\p{Zp}\p{Co}\p{Cn}]/gu;

// A text that an application chose, as it may be shown.
function shown(text) {
  return String(text).replace(INVISIBLE, (c) => `\\u{${c.codePointAt(0).toString(16)}}`);
}

// The same without its middle.
function shortened(text, length) {
  const characters = Array.from(shown(text));
  if (characters.length <= length) return characters.join('');
  const tail = Math.floor(length / 3);
  return `${characters.slice(0, length - tail - 1).join('')}\u2026${characters.slice(-tail).join('')}`;
}

const fileName = (path) => shown(String(path).split('/').pop());

function fill(node, attributes, children) {
  for (const [name, value] of Object.entries(attributes)) {
    if (name.startsWith('on')) node.addEventListener(name.slice(2), value);
    else if (value === true) node.setAttribute(name, '');
    else if (value !== false && value !== null && value !== undefined) node.setAttribute(name, value);
  }
  node.append(...children.flat().filter((child) => child !== null && child !== undefined));
  return node;
}

const html = (tag, attributes = {}, ...children) =>
  fill(document.createElement(tag), attributes, children);
const svg = (tag, attributes = {}, ...children) =>
  fill(document.createElementNS('http://www.w3.org/2000/svg', tag), attributes, children);
