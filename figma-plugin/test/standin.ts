// A stand-in for Figma's `figma` global: the calls the plugin makes, with Figma's rules where
// breaking them is an error (unloaded fonts, unsupported or oversized pictures, nodes used
// after removal), and the document written out in the shapes of Figma's REST API.
import { createHash } from 'node:crypto';
import type {
  FontName,
  MessageEventHandler,
  NotificationHandler,
  Paint,
  ShowUIOptions,
} from '@figma/plugin-typings/plugin-api-standalone';
import type { BoardFrame, BoardText } from '../src/board';
import { imageSize, MAX_IMAGE_SIDE } from '../src/package';
import type { PluginHost } from '../src/plugin';

type Json = Record<string, unknown>;

abstract class StandInNode {
  name = '';
  x = 0;
  y = 0;
  width = 100;
  height = 100;
  parent: StandInContainer | null = null;
  removed = false;
  private readonly data = new Map<string, Map<string, string>>();

  constructor(
    readonly id: string,
    readonly type: string,
  ) {}

  resize(width: number, height: number) {
    this.alive();
    if (!(width >= 0.01 && height >= 0.01)) throw new Error(`in resize: ${width}×${height} is too small`);
    this.width = width;
    this.height = height;
  }
  remove() {
    this.alive();
    this.parent?.detach(this);
    this.parent = null;
    this.removed = true;
  }
  setSharedPluginData(namespace: string, key: string, value: string) {
    this.alive();
    if (!/^[A-Za-z0-9_.-]{3,}$/.test(namespace)) throw new Error(`in setSharedPluginData: bad namespace ${namespace}`);
    if (typeof value !== 'string') throw new Error('in setSharedPluginData: the value must be text');
    const entries = this.data.get(namespace) ?? new Map<string, string>();
    if (value === '') entries.delete(key);
    else entries.set(key, value);
    this.data.set(namespace, entries);
  }
  getSharedPluginData(namespace: string, key: string): string {
    return this.data.get(namespace)?.get(key) ?? '';
  }
  absolute(): { x: number; y: number } {
    const origin = this.parent instanceof StandInNode ? this.parent.absolute() : { x: 0, y: 0 };
    return { x: origin.x + this.x, y: origin.y + this.y };
  }
  protected alive() {
    if (this.removed) throw new Error(`The node (id ${this.id}) does not exist`);
  }
  rest(): Json {
    const { x, y } = this.absolute();
    const json: Json = {
      id: this.id,
      name: this.name,
      type: this.type,
      absoluteBoundingBox: { x, y, width: this.width, height: this.height },
    };
    const shared: Record<string, Record<string, string>> = {};
    for (const [namespace, entries] of this.data) if (entries.size) shared[namespace] = Object.fromEntries(entries);
    if (Object.keys(shared).length) json.sharedPluginData = shared;
    return json;
  }
}

interface StandInContainer {
  children: StandInNode[];
  detach(node: StandInNode): void;
}

function adopt(parent: StandInContainer & object, child: { readonly id: string }) {
  if (!(child instanceof StandInNode)) throw new Error('appendChild takes a node');
  if (child.removed) throw new Error(`The node (id ${child.id}) does not exist`);
  child.parent?.detach(child);
  child.parent = parent;
  parent.children.push(child);
}

function restPaints(fills: ReadonlyArray<Paint> | symbol): Json[] {
  if (typeof fills === 'symbol') return [];
  return fills.map((paint) =>
    paint.type === 'IMAGE' ? { type: 'IMAGE', scaleMode: paint.scaleMode, imageRef: paint.imageHash } : { type: paint.type },
  );
}

export class StandInFrame extends StandInNode implements BoardFrame, StandInContainer {
  children: StandInNode[] = [];
  fills: ReadonlyArray<Paint> | symbol = [];
  clipsContent = true;
  cornerRadius: number | symbol = 0;

  appendChild(child: { readonly id: string }) {
    this.alive();
    adopt(this, child);
  }
  detach(node: StandInNode) {
    this.children = this.children.filter((child) => child !== node);
  }
  override rest(): Json {
    return { ...super.rest(), fills: restPaints(this.fills), children: this.children.map((c) => c.rest()) };
  }
}

export class StandInText extends StandInNode implements BoardText {
  fills: ReadonlyArray<Paint> | symbol = [];
  fontSize: number | symbol = 12;
  textAutoResize: 'NONE' | 'WIDTH_AND_HEIGHT' | 'HEIGHT' | 'TRUNCATE' = 'WIDTH_AND_HEIGHT';
  private font: FontName = { family: 'Inter', style: 'Regular' };
  private text = '';

  constructor(
    id: string,
    private readonly fonts: Set<string>,
  ) {
    super(id, 'TEXT');
  }
  get fontName(): FontName | symbol {
    return this.font;
  }
  set fontName(font: FontName | symbol) {
    if (typeof font === 'symbol' || !this.fonts.has(fontKey(font))) {
      throw new Error('in set_fontName: Cannot use unloaded font');
    }
    this.font = font;
  }
  get characters() {
    return this.text;
  }
  set characters(text: string) {
    this.alive();
    if (!this.fonts.has(fontKey(this.font))) {
      throw new Error(`in set_characters: Cannot write to node with unloaded font "${this.font.family} ${this.font.style}"`);
    }
    this.text = text;
  }
  override rest(): Json {
    return { ...super.rest(), characters: this.text, fills: restPaints(this.fills) };
  }
}

export class StandInPage implements StandInContainer {
  children: StandInNode[] = [];
  selection: ReadonlyArray<{ readonly id: string }> = [];

  constructor(
    readonly id: string,
    readonly name: string,
  ) {}
  detach(node: StandInNode) {
    this.children = this.children.filter((child) => child !== node);
  }
  appendChild(child: { readonly id: string }) {
    adopt(this, child);
  }
  rest(): Json {
    return { id: this.id, name: this.name, type: 'CANVAS', children: this.children.map((c) => c.rest()) };
  }
}

function fontKey(font: FontName) {
  return `${font.family}\u0000${font.style}`;
}

// Fonts every Figma file can load.
const AVAILABLE_FONTS = ['Regular', 'Medium', 'Semi Bold', 'Bold'].map((style) => fontKey({ family: 'Inter', style }));

export class StandInFigma implements PluginHost {
  readonly pages: StandInPage[];
  readonly images = new Map<string, Uint8Array>();
  readonly notices: string[] = [];
  readonly sent: unknown[] = [];
  readonly scrolledTo: string[][] = [];
  shownUI: { html: string; options?: ShowUIOptions } | undefined;
  // Makes the next calls of a kind fail, as Figma does when a file is read-only or full.
  failing: 'createText' | 'createFrame' | undefined;
  private nextId = 1;
  private readonly loaded = new Set<string>();
  private readonly uiState: { onmessage: MessageEventHandler | undefined } = { onmessage: undefined };

  constructor() {
    this.pages = [new StandInPage('0:1', 'Page 1')];
  }

  get currentPage() {
    return this.pages[0];
  }
  get ui() {
    const sent = this.sent;
    const state = this.uiState;
    return {
      postMessage(message: unknown) {
        sent.push(message);
      },
      get onmessage() {
        return state.onmessage;
      },
      set onmessage(handler: MessageEventHandler | undefined) {
        state.onmessage = handler;
      },
    };
  }
  readonly viewport = {
    scrollAndZoomIntoView: (nodes: ReadonlyArray<{ readonly id: string }>) => {
      this.scrolledTo.push(nodes.map((node) => node.id));
    },
  };

  showUI(html: string, options?: ShowUIOptions) {
    this.shownUI = options === undefined ? { html } : { html, options };
  }
  notify(message: string): NotificationHandler {
    this.notices.push(message);
    return { cancel: () => undefined };
  }
  // What the plugin's window would send.
  send(message: unknown) {
    if (!this.uiState.onmessage) throw new Error('the plugin listens to no message');
    this.uiState.onmessage(message, { origin: 'null' });
  }

  createFrame(): StandInFrame {
    if (this.failing === 'createFrame') throw new Error('in createFrame: the file is read-only');
    const frame = new StandInFrame(this.newId(), 'FRAME');
    frame.name = 'Frame';
    this.currentPage.appendChild(frame);
    return frame;
  }
  createText(): StandInText {
    if (this.failing === 'createText') throw new Error('in createText: the file is read-only');
    const text = new StandInText(this.newId(), this.loaded);
    this.currentPage.appendChild(text);
    return text;
  }
  createImage(data: Uint8Array): { readonly hash: string } {
    const size = imageSize(data);
    if (!size) throw new Error('in createImage: Image type is unsupported');
    if (size.width > MAX_IMAGE_SIDE || size.height > MAX_IMAGE_SIDE) {
      throw new Error('in createImage: Image is too large');
    }
    const hash = createHash('sha1').update(data).digest('hex');
    this.images.set(hash, data);
    return { hash };
  }
  loadFontAsync(font: FontName): Promise<void> {
    if (!AVAILABLE_FONTS.includes(fontKey(font))) {
      return Promise.reject(new Error(`The font "${font.family} ${font.style}" could not be loaded`));
    }
    this.loaded.add(fontKey(font));
    return Promise.resolve();
  }

  // Everything on the page, depth first, parent before children.
  nodes(): StandInNode[] {
    const all: StandInNode[] = [];
    const walk = (nodes: StandInNode[]) => {
      for (const node of nodes) {
        all.push(node);
        if (node instanceof StandInFrame) walk(node.children);
      }
    };
    walk(this.currentPage.children);
    return all;
  }
  // The document as GET /v1/files/:key?plugin_data=shared returns it.
  rest(): Json {
    return { id: '0:0', name: 'Document', type: 'DOCUMENT', children: this.pages.map((page) => page.rest()) };
  }

  private newId() {
    return `7:${this.nextId++}`;
  }
}

