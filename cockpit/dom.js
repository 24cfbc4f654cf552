// Makes and changes elements. Text becomes text and never markup: guests and operators choose it.

// h("p", { class: "why", onclick: f }, "text", element, null): what is null or false is left out.
export function h(tag, attributes = {}, ...children) {
  const element = document.createElement(tag);
  setAttributes(element, attributes);
  element.append(...children.flat(Infinity).filter(isShown).map(textOrElement));
  return element;
}

const SVG = "http://www.w3.org/2000/svg";

// The same of a picture's parts.
export function svg(tag, attributes = {}, ...children) {
  const element = document.createElementNS(SVG, tag);
  setAttributes(element, attributes);
  element.append(...children.flat(Infinity).filter(isShown).map(textOrElement));
  return element;
}

// Changes an element's text where it is another, so that a selection in it lasts otherwise.
export function setText(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

// Sets the attribute, or takes it away where the value is null or false.
export function setAttribute(element, name, value) {
  if (value === null || value === undefined || value === false) element.removeAttribute(name);
  else if (element.getAttribute(name) !== String(value)) element.setAttribute(name, value === true ? "" : value);
}

// Makes `parent`'s children those, in that order, and touches only what is elsewhere: what has the
// focus keeps it.
export function setChildren(parent, children) {
  const wanted = new Set(children);
  for (const child of [...parent.children]) if (!wanted.has(child)) child.remove();
  let at = parent.firstElementChild;
  for (const child of children) {
    if (child === at) at = at.nextElementSibling;
    else parent.insertBefore(child, at);
  }
}

let lastId = 0;
// An id that no other element has.
export function newId() {
  return `e${++lastId}`;
}

function setAttributes(element, attributes) {
  for (const [name, value] of Object.entries(attributes)) {
    if (name.startsWith("on")) element.addEventListener(name.slice(2), value);
    else setAttribute(element, name, value);
  }
}

function isShown(child) {
  return child !== null && child !== undefined && child !== false;
}

function textOrElement(child) {
  return child instanceof Node ? child : String(child);
}
