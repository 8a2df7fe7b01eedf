// Unpacking a dropped package, in the plugin's window (Figma's code side has no zip reader).
import { unzipSync } from 'fflate';
import { checkPackage, PackageError, type FlowPackage } from './package';

const MAX_FILE_BYTES = 64 * 1024 * 1024;

// Reads a dropped ".figflow.zip". Only "flow.json" and the pictures it lists are unpacked.
export function readPackage(zip: Uint8Array): FlowPackage {
  let files: Record<string, Uint8Array>;
  try {
    files = unzipSync(zip, {
      filter: (file) => file.originalSize <= MAX_FILE_BYTES && !file.name.includes('/'),
    });
  } catch {
    throw new PackageError('This file is not a zip. Drop the .figflow.zip that Varnel exported.');
  }
  const manifestBytes = files['flow.json'];
  if (!manifestBytes) {
    throw new PackageError('This zip is not a Varnel package: it has no flow.json.');
  }
  let json: unknown;
  try {
    json = JSON.parse(new TextDecoder().decode(manifestBytes));
  } catch {
    throw new PackageError('flow.json in this package is not valid JSON.');
  }
  const images: Record<string, Uint8Array> = {};
  for (const [name, bytes] of Object.entries(files)) if (name !== 'flow.json') images[name] = bytes;
  const manifest = checkPackage(json, images);
  const listed: Record<string, Uint8Array> = {};
  for (const screen of manifest.screens) listed[screen.file] = images[screen.file];
  return { manifest, images: listed };
}
