// Reads the redirection settings as an extension does, in Firefox from the managed storage and elsewhere from the file
// beside this one, and posts what it got to the address that the check has put into reportTo.json.
"use strict";

async function readFile(name) {
  return (await fetch(chrome.runtime.getURL(name))).json();
}

async function read() {
  try {
    const inFirefox = chrome.runtime.getURL("").startsWith("moz-extension:");
    return { document: inFirefox ? await browser.storage.managed.get(null) : await readFile("data.json") };
  } catch (error) {
    return { error: String(error) };
  }
}

async function report() {
  await fetch(await readFile("reportTo.json"), { method: "POST", body: JSON.stringify(await read()) });
}

report();
