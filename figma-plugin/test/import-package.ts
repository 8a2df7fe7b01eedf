// Imports a package with the plugin as it ships (its code.js from PLUGIN_DIR, by default the
// build's plugin folder) into a stand-in document that already holds some work, and writes the
// document in the shapes of Figma's REST API:
// `node import-package.mjs PACKAGE.figflow.zip DOCUMENT.json [PLUGIN_DIR]`.
import { readFileSync, writeFileSync } from 'node:fs';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { createContext, runInContext } from 'node:vm';
import { readPackage } from '../src/unzip';
import { StandInFigma, StandInFrame } from './standin';

async function main() {
  const [packagePath, outPath, pluginDir] = process.argv.slice(2);
  if (!packagePath || !outPath) throw new Error('usage: import-package PACKAGE DOCUMENT.json [PLUGIN_DIR]');
  const figma = new StandInFigma();
  const earlier = new StandInFrame('5:1', 'FRAME');
  earlier.name = 'Earlier work';
  earlier.resize(1200, 800);
  figma.currentPage.appendChild(earlier);

  const here = dirname(fileURLToPath(import.meta.url));
  const code = readFileSync(join(pluginDir ?? join(here, '..', 'plugin'), 'code.js'), 'utf8');
  runInContext(code, createContext({ figma, __html__: '<p>window</p>', console }));

  // The window's part: unpack and check, then hand over.
  const reading = performance.now();
  const { manifest, images } = readPackage(new Uint8Array(readFileSync(packagePath)));
  const started = performance.now();
  figma.send({ type: 'import', manifest, images });
  while (figma.sent.length === 0) await new Promise((resolve) => setTimeout(resolve, 1));
  const elapsed = performance.now() - started;
  const reply = figma.sent[0] as { type: string; message?: string };
  if (reply.type !== 'imported') throw new Error(reply.message ?? 'the import failed');
  writeFileSync(outPath, JSON.stringify(figma.rest(), null, 1));
  const read = started - reading;
  process.stdout.write(
    `read the package in ${read.toFixed(1)} ms, imported ${manifest.screens.length} screens in ${elapsed.toFixed(1)} ms\n`,
  );
}

main().catch((error: unknown) => {
  process.stderr.write(`${error instanceof Error ? error.message : String(error)}\n`);
  process.exitCode = 1;
});
