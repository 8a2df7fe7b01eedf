// Builds the plugin into OUT/plugin (manifest, code, window), its zip for Varnel to ship,
// and the tests into OUT/test: `node build.mjs OUT VERSION`.
import { build } from 'esbuild';
import { mkdirSync, readFileSync, readdirSync, writeFileSync } from 'node:fs';
import { join, resolve } from 'node:path';
import { zipSync } from 'fflate';

const [outArg, version] = process.argv.slice(2);
if (!outArg || !version) {
  console.error('usage: node build.mjs OUT VERSION');
  process.exit(2);
}
const out = resolve(outArg);
const here = new URL('.', import.meta.url).pathname;
const source = (path) => join(here, path);

// Figma runs plugin code in a sandbox of its own: plain ES2017, one file, no modules.
const common = { bundle: true, legalComments: 'none', logLevel: 'warning' };
await build({
  ...common,
  entryPoints: [source('src/code.ts')],
  outfile: join(out, 'plugin', 'code.js'),
  format: 'iife',
  target: 'es2017',
});
const ui = await build({
  ...common,
  entryPoints: [source('src/ui.ts')],
  write: false,
  format: 'iife',
  target: 'es2017',
  minify: true,
});
const script = ui.outputFiles[0].text.replace(/<\/script/gi, '<\\/script');
const html = readFileSync(source('src/ui.html'), 'utf8').replace('/*ui-script*/', () => script);
writeFileSync(join(out, 'plugin', 'ui.html'), html);
writeFileSync(join(out, 'plugin', 'manifest.json'), readFileSync(source('manifest.json')));

const tests = readdirSync(source('test')).filter((name) => name.endsWith('.test.ts'));
await build({
  ...common,
  entryPoints: tests.map((name) => source(`test/${name}`)),
  outdir: join(out, 'test'),
  platform: 'node',
  format: 'esm',
  target: 'node18',
  outExtension: { '.js': '.mjs' },
});
await build({
  ...common,
  entryPoints: [source('test/import-package.ts')],
  outdir: join(out, 'tools'),
  platform: 'node',
  format: 'esm',
  target: 'node18',
  outExtension: { '.js': '.mjs' },
});

// Fixed times keep the zip the same from one build to the next.
const mtime = new Date('2026-01-01T00:00:00Z');
const folder = 'varnel-figma-plugin';
const files = {};
for (const name of ['manifest.json', 'code.js', 'ui.html']) {
  files[`${folder}/${name}`] = [new Uint8Array(readFileSync(join(out, 'plugin', name))), { mtime }];
}
mkdirSync(out, { recursive: true });
const zipName = `Varnel-figma-plugin-v${version}.zip`;
writeFileSync(join(out, zipName), zipSync(files, { level: 9, mtime }));
