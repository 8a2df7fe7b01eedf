// Lays a flow out on the current page as a board that Varnel can find again: a root frame
// tagged with the flow, its still screens left to right, each tagged with its file.
import type { FontName, Paint } from '@figma/plugin-typings/plugin-api-standalone';
import { imageSize, type FlowPackage } from './package';

export const NAMESPACE = 'varnel';

// What the importer uses of Figma's plugin API. The real `figma` is checked against it where
// the plugin starts, and the tests' stand-in implements it.
export interface BoardNode {
  readonly id: string;
  name: string;
  x: number;
  y: number;
  readonly width: number;
  readonly height: number;
  resize(width: number, height: number): void;
  remove(): void;
  setSharedPluginData(namespace: string, key: string, value: string): void;
  getSharedPluginData(namespace: string, key: string): string;
}

export interface BoardFrame extends BoardNode {
  fills: ReadonlyArray<Paint> | symbol;
  clipsContent: boolean;
  cornerRadius: number | symbol;
  appendChild(child: { readonly id: string }): void;
}

export interface BoardText extends BoardNode {
  fontName: FontName | symbol;
  fontSize: number | symbol;
  fills: ReadonlyArray<Paint> | symbol;
  characters: string;
  textAutoResize: 'NONE' | 'WIDTH_AND_HEIGHT' | 'HEIGHT' | 'TRUNCATE';
}

export interface PlacedNode {
  readonly x: number;
  readonly y: number;
  readonly width: number;
  readonly height: number;
  getSharedPluginData(namespace: string, key: string): string;
}

export interface BoardAPI {
  createFrame(): BoardFrame;
  createText(): BoardText;
  createImage(data: Uint8Array): { readonly hash: string };
  loadFontAsync(font: FontName): Promise<void>;
  readonly currentPage: {
    readonly children: ReadonlyArray<PlacedNode>;
    selection: ReadonlyArray<{ readonly id: string }>;
  };
  readonly viewport: { scrollAndZoomIntoView(nodes: ReadonlyArray<{ readonly id: string }>): void };
}

const REGULAR: FontName = { family: 'Inter', style: 'Regular' };
const BOLD: FontName = { family: 'Inter', style: 'Bold' };
const INK: Paint = { type: 'SOLID', color: { r: 0.1, g: 0.1, b: 0.12 } };
const MUTED: Paint = { type: 'SOLID', color: { r: 0.42, g: 0.42, b: 0.46 } };
const PAPER: Paint = { type: 'SOLID', color: { r: 0.96, g: 0.96, b: 0.97 } };
const LINE_HEIGHT = 1.25;
const MIN_BOARD_WIDTH = 480;

// Sizes follow the screens', so a board of 3× screenshots reads like one of 1× screens.
function metrics(width: number) {
  const unit = Math.max(width, 320) / 390;
  return {
    gap: Math.round(48 * unit),
    pad: Math.round(48 * unit),
    title: Math.round(28 * unit),
    subtitle: Math.round(16 * unit),
    caption: Math.round(14 * unit),
    spacing: Math.round(200 * unit),
  };
}

function text(api: BoardAPI, characters: string, font: FontName, size: number, fill: Paint, width: number): BoardText {
  const node = api.createText();
  node.fontName = font;
  node.fontSize = size;
  node.fills = [fill];
  node.characters = characters;
  node.textAutoResize = 'HEIGHT';
  node.resize(Math.max(1, width), Math.ceil(size * LINE_HEIGHT));
  return node;
}

// Where a new board goes: to the right of everything on the page, level with its top.
function placement(api: BoardAPI, spacing: number): { x: number; y: number } {
  const nodes = api.currentPage.children;
  if (nodes.length === 0) return { x: 0, y: 0 };
  const right = Math.max(...nodes.map((node) => node.x + node.width));
  const top = Math.min(...nodes.map((node) => node.y));
  return { x: Math.round(right + spacing), y: Math.round(top) };
}

// The import time, later than any board of the same flow already on the page, so that the
// newest board is the one Varnel finds even when two imports share a millisecond.
function importTime(api: BoardAPI, flowId: string, now: Date): string {
  let time = now.getTime();
  for (const node of api.currentPage.children) {
    if (node.getSharedPluginData(NAMESPACE, 'flowId') !== flowId) continue;
    const earlier = Date.parse(node.getSharedPluginData(NAMESPACE, 'importedAt'));
    if (Number.isFinite(earlier) && earlier >= time) time = earlier + 1;
  }
  return new Date(time).toISOString();
}

export interface ImportResult {
  root: BoardFrame;
  screens: number;
}

// Builds the board. Every picture is handed to Figma before any node is made, so a package
// that Figma refuses leaves the page as it was; a failure halfway removes what was made.
export async function importFlow(api: BoardAPI, pkg: FlowPackage, now: Date): Promise<ImportResult> {
  const { manifest } = pkg;
  const hashes = manifest.screens.map((screen) => api.createImage(pkg.images[screen.file]).hash);
  const first = manifest.screens.length > 0 ? imageSize(pkg.images[manifest.screens[0].file]) : undefined;
  const width = manifest.width > 0 ? manifest.width : first?.width ?? 390;
  const height = manifest.height > 0 ? manifest.height : first?.height ?? 844;
  await Promise.all([api.loadFontAsync(REGULAR), api.loadFontAsync(BOLD)]);

  const m = metrics(width);
  const where = placement(api, m.spacing);
  const count = manifest.screens.length;
  const boardWidth = Math.max(MIN_BOARD_WIDTH, 2 * m.pad + count * width + Math.max(0, count - 1) * m.gap);
  const root = api.createFrame();
  try {
    root.name = manifest.title || 'Flow';
    root.fills = [PAPER];
    root.cornerRadius = Math.round(m.pad / 3);
    root.clipsContent = false;

    const inner = boardWidth - 2 * m.pad;
    const title = text(api, manifest.title || 'Untitled flow', BOLD, m.title, INK, inner);
    title.name = 'Title';
    title.x = m.pad;
    title.y = m.pad;
    root.appendChild(title);
    const about = [manifest.application, manifest.category].filter((part) => part).join(' · ');
    const subtitle = text(api, about || ' ', REGULAR, m.subtitle, MUTED, inner);
    subtitle.name = 'Application and category';
    subtitle.x = m.pad;
    subtitle.y = title.y + Math.ceil(m.title * LINE_HEIGHT) + Math.round(m.subtitle / 2);
    root.appendChild(subtitle);

    const top = subtitle.y + Math.ceil(m.subtitle * LINE_HEIGHT) + m.gap;
    const captionHeight = Math.ceil(m.caption * LINE_HEIGHT) * 2;
    manifest.screens.forEach((screen, i) => {
      const x = m.pad + i * (width + m.gap);
      const frame = api.createFrame();
      frame.name = screen.caption ?? screen.file;
      frame.resize(width, height);
      frame.x = x;
      frame.y = top;
      frame.clipsContent = true;
      frame.fills = [{ type: 'IMAGE', scaleMode: 'FILL', imageHash: hashes[i] }];
      frame.setSharedPluginData(NAMESPACE, 'file', screen.file);
      root.appendChild(frame);
      if (screen.caption === undefined) return;
      const caption = text(api, screen.caption, REGULAR, m.caption, INK, width);
      caption.name = 'Caption';
      caption.x = x;
      caption.y = top + height + Math.round(m.caption);
      root.appendChild(caption);
    });

    const bottom = count > 0 ? top + height + Math.round(m.caption) + captionHeight : top;
    root.resize(boardWidth, bottom + m.pad);
    root.x = where.x;
    root.y = where.y;
    root.setSharedPluginData(NAMESPACE, 'flowId', manifest.flowId);
    root.setSharedPluginData(NAMESPACE, 'importedAt', importTime(api, manifest.flowId, now));
  } catch (error) {
    root.remove();
    throw error;
  }
  api.currentPage.selection = [root];
  api.viewport.scrollAndZoomIntoView([root]);
  return { root, screens: count };
}
