// A flow package as Varnel exports it: "flow.json" and the still screens at the zip's root.

export const FORMAT_VERSION = 2;
// Figma refuses larger pictures; a package is refused before anything is made.
export const MAX_IMAGE_SIDE = 4096;

export interface ScreenEntry {
  file: string;
  caption?: string;
}

export interface Manifest {
  version: number;
  flowId: string;
  title: string;
  application: string;
  category?: string;
  width: number;
  height: number;
  screens: ScreenEntry[];
}

export interface FlowPackage {
  manifest: Manifest;
  images: Record<string, Uint8Array>;
}

// What is wrong with a package, said so that the user knows what to do.
export class PackageError extends Error {}

function isRecord(value: unknown): value is Record<string, unknown> {
  return typeof value === 'object' && value !== null && !Array.isArray(value);
}

// File names come from a file the user dropped: one plain name each, never a path.
function isSafeFileName(name: string): boolean {
  return (
    name.length > 0 &&
    name.length <= 255 &&
    name !== '.' &&
    name !== '..' &&
    !/[/\\\u0000-\u001f]/.test(name)
  );
}

// Bytes that crossed from the plugin's window, or from another realm, are still bytes.
function isBytes(value: unknown): value is Uint8Array {
  return Object.prototype.toString.call(value) === '[object Uint8Array]';
}

function startsWith(bytes: Uint8Array, signature: number[]): boolean {
  return signature.every((byte, i) => bytes[i] === byte);
}

// The picture's own size in pixels, from a PNG's header or a JPEG's frame; none for others.
export function imageSize(bytes: Uint8Array): { width: number; height: number } | undefined {
  if (startsWith(bytes, [0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a]) && bytes.length >= 24) {
    const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
    return { width: view.getUint32(16), height: view.getUint32(20) };
  }
  if (!startsWith(bytes, [0xff, 0xd8])) return undefined;
  for (let at = 2; at + 9 < bytes.length; ) {
    if (bytes[at] !== 0xff) return undefined;
    const marker = bytes[at + 1];
    const length = (bytes[at + 2] << 8) | bytes[at + 3];
    const isFrame = marker >= 0xc0 && marker <= 0xcf && marker !== 0xc4 && marker !== 0xc8 && marker !== 0xcc;
    if (isFrame) {
      return { height: (bytes[at + 5] << 8) | bytes[at + 6], width: (bytes[at + 7] << 8) | bytes[at + 8] };
    }
    at += 2 + length;
  }
  return undefined;
}

function text(json: Record<string, unknown>, key: string, required: boolean): string | undefined {
  const value = json[key];
  if (value === undefined && !required) return undefined;
  if (typeof value !== 'string') throw new PackageError(`flow.json has no "${key}" text.`);
  return value;
}

function size(json: Record<string, unknown>, key: string): number {
  const value = json[key];
  if (typeof value !== 'number' || !Number.isFinite(value) || value < 0) {
    throw new PackageError(`flow.json's "${key}" is not a size in pixels.`);
  }
  return value;
}

// Checks a manifest and its pictures, as read from a zip or as passed between the plugin's
// window and its code, and returns the manifest in its own shape.
export function checkPackage(json: unknown, images: Record<string, Uint8Array>): Manifest {
  if (!isRecord(json)) throw new PackageError('flow.json is not a flow manifest.');
  if (json.version !== FORMAT_VERSION) {
    throw new PackageError(
      `This package is in format ${String(json.version)}; this plugin reads format ${FORMAT_VERSION}. ` +
        'Update Varnel and the plugin to the same version.',
    );
  }
  const flowId = text(json, 'flowId', false);
  if (!flowId) {
    throw new PackageError(
      'This package does not name its flow, so Varnel could not find the board again. ' +
        'Export the flow again with an up-to-date Varnel.',
    );
  }
  if (!Array.isArray(json.screens)) throw new PackageError('flow.json has no "screens" list.');
  const seen = new Set<string>();
  const screens: ScreenEntry[] = json.screens.map((entry: unknown) => {
    if (!isRecord(entry) || typeof entry.file !== 'string' || !isSafeFileName(entry.file)) {
      throw new PackageError('flow.json lists a screen without a plain file name.');
    }
    if (seen.has(entry.file)) throw new PackageError(`flow.json lists ${entry.file} twice.`);
    seen.add(entry.file);
    const bytes = Object.prototype.hasOwnProperty.call(images, entry.file) ? images[entry.file] : undefined;
    if (!isBytes(bytes)) {
      throw new PackageError(`flow.json lists ${entry.file}, which is not in the package.`);
    }
    const pixels = imageSize(bytes);
    if (!pixels) throw new PackageError(`${entry.file} is not a PNG or JPEG picture.`);
    if (pixels.width > MAX_IMAGE_SIDE || pixels.height > MAX_IMAGE_SIDE) {
      throw new PackageError(
        `${entry.file} is ${pixels.width}×${pixels.height} pixels; Figma takes pictures up to ` +
          `${MAX_IMAGE_SIDE} pixels on a side.`,
      );
    }
    const caption = typeof entry.caption === 'string' && entry.caption !== '' ? entry.caption : undefined;
    return caption === undefined ? { file: entry.file } : { file: entry.file, caption };
  });
  const category = text(json, 'category', false);
  const manifest: Manifest = {
    version: FORMAT_VERSION,
    flowId,
    title: text(json, 'title', true) ?? '',
    application: text(json, 'application', true) ?? '',
    width: size(json, 'width'),
    height: size(json, 'height'),
    screens,
  };
  if (category) manifest.category = category;
  return manifest;
}

