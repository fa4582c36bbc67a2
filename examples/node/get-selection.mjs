#!/usr/bin/env node
// Reads the user's selection through tovrin, as an Electron or Node host
// would: asynchronously (never blocking the UI), with a timeout, stderr
// kept for diagnostics, and the answer read by key.
//   node get-selection.mjs        (TOVRIN names the binary; default: tovrin)
import { execFile } from 'node:child_process';

function getSelection() {
  return new Promise((resolve) => {
    execFile(process.env.TOVRIN || 'tovrin', ['get-selection'],
      { timeout: 10000, maxBuffer: 256 * 1024 * 1024 },
      (error, stdout, stderr) => {
        let answer;
        try {
          answer = JSON.parse(stdout);
        } catch {
          // Killed at the timeout, or not there at all.
          answer = { success: false, error: `tovrin did not answer (${error?.code ?? error?.signal})` };
        }
        resolve({ answer, diagnostics: stderr });
      });
  });
}

const { answer, diagnostics } = await getSelection();
if (!answer.success) {
  console.error(`tovrin: ${answer.error}`);
  // The diagnostic lines say which way it went, should a user report it.
  if (process.env.TOVRIN_VERBOSE) console.error(diagnostics);
  process.exit(1);
}
// The three shapes of a successful answer.
if (answer.file_paths) {
  console.log(`files: ${answer.file_paths.join(', ')}`);
} else {
  console.log(`text: ${answer.text}`);
  if (answer.html !== undefined) console.log(`html: ${answer.html}`);
}
console.log(`method: ${answer.method}`);
