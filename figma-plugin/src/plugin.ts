// The plugin's code side: it opens the window, takes the package the window read, and builds
// the board.
import type {
  MessageEventHandler,
  NotificationHandler,
  NotificationOptions,
  ShowUIOptions,
} from '@figma/plugin-typings/plugin-api-standalone';
import { importFlow, type BoardAPI } from './board';
import { checkPackage, PackageError } from './package';

// Messages between the window and the code.
export type ToCode = { type: 'import'; manifest: unknown; images: Record<string, Uint8Array> };
export type ToWindow =
  | { type: 'imported'; title: string; screens: number }
  | { type: 'failed'; message: string };

export interface PluginHost extends BoardAPI {
  showUI(html: string, options?: ShowUIOptions): void;
  readonly ui: {
    postMessage(message: unknown): void;
    onmessage: MessageEventHandler | undefined;
  };
  notify(message: string, options?: NotificationOptions): NotificationHandler;
}

function isImport(message: unknown): message is ToCode {
  if (typeof message !== 'object' || message === null) return false;
  const candidate = message as Record<string, unknown>;
  return (
    candidate.type === 'import' && typeof candidate.images === 'object' && candidate.images !== null
  );
}

async function handle(host: PluginHost, message: unknown, now: () => Date): Promise<ToWindow> {
  if (!isImport(message)) return { type: 'failed', message: 'The plugin window sent something it does not know.' };
  try {
    const manifest = checkPackage(message.manifest, message.images);
    const result = await importFlow(host, { manifest, images: message.images }, now());
    const title = manifest.title || 'Untitled flow';
    host.notify(`Imported “${title}”: ${result.screens} ${result.screens === 1 ? 'screen' : 'screens'}`);
    return { type: 'imported', title, screens: result.screens };
  } catch (error) {
    const reason = error instanceof PackageError || error instanceof Error ? error.message : String(error);
    return { type: 'failed', message: error instanceof PackageError ? reason : `Figma refused the board: ${reason}` };
  }
}

// Resolves once per import with what the window was told, for tests that drive the plugin.
export function startPlugin(host: PluginHost, html: string, now: () => Date = () => new Date()) {
  host.showUI(html, { width: 340, height: 300, themeColors: true, title: 'Varnel Import' });
  const listeners: Array<(reply: ToWindow) => void> = [];
  host.ui.onmessage = (message: unknown) => {
    void handle(host, message, now).then((reply) => {
      host.ui.postMessage(reply);
      for (const listener of listeners) listener(reply);
    });
  };
  return { onReply: (listener: (reply: ToWindow) => void) => listeners.push(listener) };
}
