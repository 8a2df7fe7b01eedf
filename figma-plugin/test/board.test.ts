import assert from 'node:assert/strict';
import { describe, it } from 'node:test';
import { strToU8, zipSync } from 'fflate';
import { startPlugin, type ToWindow } from '../src/plugin';
import { PackageError } from '../src/package';
import { readPackage } from '../src/unzip';
import { flowPackage, png, zip, type PackageContents } from './packages';
import { StandInFigma, StandInFrame, StandInText } from './standin';

const NOW = new Date('2026-11-23T10:00:00.000Z');

// Drives the plugin as Figma does: its code starts, its window reads the dropped zip and sends
// what it read; the answer is what the window is told.
async function drop(figma: StandInFigma, bytes: Uint8Array): Promise<ToWindow> {
  if (!figma.shownUI) plugins.set(figma, startPlugin(figma, '<p>window</p>', () => NOW));
  let message: unknown;
  try {
    const { manifest, images } = readPackage(bytes);
    message = { type: 'import', manifest, images };
  } catch (error) {
    assert.ok(error instanceof PackageError, `the window reads ${String(error)}`);
    return { type: 'failed', message: error.message };
  }
  return send(figma, message);
}

const plugins = new Map<StandInFigma, ReturnType<typeof startPlugin>>();

function send(figma: StandInFigma, message: unknown): Promise<ToWindow> {
  if (!figma.shownUI) plugins.set(figma, startPlugin(figma, '<p>window</p>', () => NOW));
  const reply = new Promise<ToWindow>((resolve) => plugins.get(figma)!.onReply(resolve));
  figma.send(message);
  return reply;
}

function roots(figma: StandInFigma): StandInFrame[] {
  return figma.currentPage.children.filter(
    (node): node is StandInFrame => node instanceof StandInFrame && node.getSharedPluginData('varnel', 'flowId') !== '',
  );
}

function screensOf(root: StandInFrame): StandInFrame[] {
  return root.children.filter(
    (node): node is StandInFrame => node instanceof StandInFrame && node.getSharedPluginData('varnel', 'file') !== '',
  );
}

function texts(root: StandInFrame): StandInText[] {
  return root.children.filter((node): node is StandInText => node instanceof StandInText);
}

function withExistingContent(): StandInFigma {
  const figma = new StandInFigma();
  const sketch = new StandInFrame('5:1', 'FRAME');
  sketch.name = 'Earlier work';
  sketch.x = -200;
  sketch.y = 120;
  sketch.resize(900, 600);
  figma.currentPage.appendChild(sketch);
  return figma;
}

describe('importing a package', () => {
  it('lays the flow out as a tagged board beside what the page holds', async () => {
    const figma = withExistingContent();
    const contents = flowPackage(3);
    const reply = await drop(figma, zip(contents));
    assert.deepEqual(reply, { type: 'imported', title: 'Sign up', screens: 3 });
    assert.deepEqual(figma.sent, [reply]);
    assert.deepEqual(figma.notices, ['Imported “Sign up”: 3 screens']);

    const [root] = roots(figma);
    assert.equal(roots(figma).length, 1);
    assert.equal(root.name, 'Sign up');
    assert.equal(root.getSharedPluginData('varnel', 'flowId'), contents.manifest.flowId);
    assert.equal(root.getSharedPluginData('varnel', 'importedAt'), NOW.toISOString());
    assert.ok(root.x >= 700, `beside the earlier work, not over it (x ${root.x})`);
    assert.equal(root.y, 120, 'level with the top of the page content');
    assert.deepEqual(figma.currentPage.selection, [root]);
    assert.deepEqual(figma.scrolledTo, [[root.id]]);

    // The screens left to right in manifest order, at the manifest's size, with their pictures.
    const screens = screensOf(root);
    assert.deepEqual(
      screens.map((s) => s.getSharedPluginData('varnel', 'file')),
      ['01.png', '02.png', '03.png'],
    );
    for (const [i, screen] of screens.entries()) {
      assert.equal(screen.width, 390);
      assert.equal(screen.height, 844);
      assert.equal(screen.y, screens[0].y);
      if (i > 0) assert.ok(screen.x >= screens[i - 1].x + 390, 'no overlap');
      const fills = screen.fills as ReadonlyArray<{ type: string; imageHash?: string }>;
      assert.equal(fills.length, 1);
      assert.equal(fills[0].type, 'IMAGE');
      assert.deepEqual(figma.images.get(fills[0].imageHash!), contents.files[`0${i + 1}.png`]);
      assert.ok(screen.x + screen.width <= root.width && screen.y + screen.height <= root.height, 'inside the board');
    }

    // Title and caption on top, each screen's caption under it; a screen without one has none.
    const byText = new Map(texts(root).map((t) => [t.characters, t]));
    assert.ok(byText.get('Sign up')!.y < screens[0].y);
    assert.ok(byText.get('Acme · Onboarding')!.y < screens[0].y);
    for (const [caption, screen] of [
      ['Step 1', screens[0]],
      ['Step 3', screens[2]],
    ] as const) {
      const text = byText.get(caption)!;
      assert.equal(text.x, screen.x);
      assert.ok(text.y >= screen.y + screen.height && text.y + text.height <= root.height, `${caption} under its screen`);
    }
    assert.equal(texts(root).length, 4, 'no caption for the screen without one');
  });

  it('makes a newer board for a second import of the same flow', async () => {
    const figma = new StandInFigma();
    const bytes = zip(flowPackage(2));
    await drop(figma, bytes);
    const reply = await drop(figma, bytes);
    assert.equal(reply.type, 'imported');
    const [first, second] = roots(figma);
    assert.equal(roots(figma).length, 2);
    assert.ok(second.x >= first.x + first.width, 'the second board is beside the first');
    const firstAt = first.getSharedPluginData('varnel', 'importedAt');
    const secondAt = second.getSharedPluginData('varnel', 'importedAt');
    assert.ok(secondAt > firstAt, `${secondAt} is later than ${firstAt}, as the board lookup compares them`);
  });

  it('uses the pictures own size when the package has none, and lays out a flow of clips only', async () => {
    const figma = new StandInFigma();
    const contents = flowPackage(1);
    contents.manifest.width = 0;
    contents.manifest.height = 0;
    await drop(figma, zip(contents));
    const [screen] = screensOf(roots(figma)[0]);
    assert.deepEqual([screen.width, screen.height], [39, 84]);

    const clips: PackageContents = { manifest: { ...flowPackage(0).manifest, flowId: 'CLIPS' }, files: {} };
    assert.deepEqual(await drop(figma, zip(clips)), { type: 'imported', title: 'Sign up', screens: 0 });
    assert.equal(roots(figma).length, 2);
  });
});

describe('a package that is broken or foreign', () => {
  const cases: Array<[string, () => Uint8Array, RegExp]> = [
    ['not a zip', () => strToU8('PK but not really'), /not a zip/],
    ['no manifest', () => zipSync({ '01.png': png(4, 4) }), /no flow\.json/],
    ['manifest not JSON', () => zipSync({ 'flow.json': strToU8('{"version": 2,') }), /not valid JSON/],
    [
      'another format',
      () => zip({ ...flowPackage(1), manifest: { ...flowPackage(1).manifest, version: 3 } }),
      /format 3; this plugin reads format 2/,
    ],
    [
      'no flow id (made by an older Varnel)',
      () => {
        const contents = flowPackage(1);
        delete contents.manifest.flowId;
        return zip(contents);
      },
      /Export the flow again/,
    ],
    [
      'a screen missing',
      () => {
        const contents = flowPackage(2);
        delete contents.files['02.png'];
        return zip(contents);
      },
      /lists 02\.png, which is not in the package/,
    ],
    [
      'a path for a file name',
      () => {
        const contents = flowPackage(1);
        contents.manifest.screens = [{ file: '../01.png' }];
        return zip(contents);
      },
      /without a plain file name/,
    ],
    [
      'not a picture',
      () => zip({ ...flowPackage(1), files: { '01.png': strToU8('<svg/>') } }),
      /01\.png is not a PNG or JPEG/,
    ],
    [
      'a picture larger than Figma takes',
      () => zip({ ...flowPackage(1), files: { '01.png': png(4100, 2) } }),
      /4100×2 pixels; Figma takes pictures up to 4096/,
    ],
  ];
  for (const [name, bytes, message] of cases) {
    it(`says so and makes nothing: ${name}`, async () => {
      const figma = withExistingContent();
      const reply = await drop(figma, bytes());
      assert.equal(reply.type, 'failed');
      assert.match((reply as { message: string }).message, message);
      assert.equal(figma.nodes().length, 1, 'the page is as it was');
    });
  }

  it('checks what reaches the code too, and leaves nothing when Figma refuses halfway', async () => {
    const figma = withExistingContent();
    const contents = flowPackage(2);
    const forged = await send(figma, { type: 'import', manifest: contents.manifest, images: { '01.png': contents.files['01.png'] } });
    assert.deepEqual(forged, { type: 'failed', message: 'flow.json lists 02.png, which is not in the package.' });
    assert.equal((await send(figma, { type: 'hello' })).type, 'failed');

    figma.failing = 'createText';
    const refused = await send(figma, { type: 'import', manifest: contents.manifest, images: contents.files });
    assert.equal(refused.type, 'failed');
    assert.match((refused as { message: string }).message, /^Figma refused the board: in createText/);
    assert.equal(figma.nodes().length, 1, 'the half-made board was removed');
    assert.deepEqual(figma.notices, []);
  });
});
