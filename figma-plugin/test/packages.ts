// Packages as Varnel exports them, with real PNG pictures.
import { strToU8, zipSync, zlibSync } from 'fflate';

const CRC_TABLE = Array.from({ length: 256 }, (_, n) => {
  let c = n;
  for (let k = 0; k < 8; k++) c = c & 1 ? 0xedb88320 ^ (c >>> 1) : c >>> 1;
  return c >>> 0;
});

function crc32(bytes: Uint8Array): number {
  let c = 0xffffffff;
  for (const byte of bytes) c = CRC_TABLE[(c ^ byte) & 0xff] ^ (c >>> 8);
  return (c ^ 0xffffffff) >>> 0;
}

function chunk(type: string, data: Uint8Array): Uint8Array {
  const out = new Uint8Array(12 + data.length);
  const view = new DataView(out.buffer);
  view.setUint32(0, data.length);
  out.set(strToU8(type), 4);
  out.set(data, 8);
  view.setUint32(8 + data.length, crc32(out.subarray(4, 8 + data.length)));
  return out;
}

// A grey picture of one shade, `width`×`height` pixels.
export function png(width: number, height: number, shade = 128): Uint8Array {
  const header = new Uint8Array(13);
  const view = new DataView(header.buffer);
  view.setUint32(0, width);
  view.setUint32(4, height);
  header.set([8, 0, 0, 0, 0], 8); // 8-bit greyscale
  const rows = new Uint8Array((width + 1) * height);
  for (let y = 0; y < height; y++) rows.fill(shade, y * (width + 1) + 1, (y + 1) * (width + 1));
  const parts = [
    new Uint8Array([0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a]),
    chunk('IHDR', header),
    chunk('IDAT', zlibSync(rows)),
    chunk('IEND', new Uint8Array()),
  ];
  const out = new Uint8Array(parts.reduce((sum, part) => sum + part.length, 0));
  let at = 0;
  for (const part of parts) {
    out.set(part, at);
    at += part.length;
  }
  return out;
}

export interface PackageContents {
  manifest: Record<string, unknown>;
  files: Record<string, Uint8Array>;
}

// A flow of `count` screens of 39×84 pixels shown at 390×844; every other one has a caption.
export function flowPackage(count = 3, flowId = 'F1A2B3C4-0000-4000-8000-00000000000A'): PackageContents {
  const files: Record<string, Uint8Array> = {};
  const screens = Array.from({ length: count }, (_, i) => {
    const file = `${String(i + 1).padStart(2, '0')}.png`;
    files[file] = png(39, 84, 40 + i);
    return i % 2 === 0 ? { file, caption: `Step ${i + 1}` } : { file };
  });
  return {
    manifest: {
      version: 2,
      flowId,
      title: 'Sign up',
      application: 'Acme',
      category: 'Onboarding',
      width: 390,
      height: 844,
      screens,
    },
    files,
  };
}

export function zip(contents: PackageContents): Uint8Array {
  return zipSync({ 'flow.json': strToU8(JSON.stringify(contents.manifest, null, 2)), ...contents.files });
}
