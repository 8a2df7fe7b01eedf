// The plugin's window: it takes a ".figflow.zip" dropped on it or chosen, unpacks and checks
// it here, and hands the manifest and pictures to the plugin's code.
import type { ToCode, ToWindow } from './plugin';
import { readPackage } from './unzip';

const zone = document.getElementById('zone') as HTMLElement;
const chooser = document.getElementById('chooser') as HTMLInputElement;
const status = document.getElementById('status') as HTMLElement;

function say(message: string, kind: 'busy' | 'done' | 'error') {
  status.textContent = message;
  status.className = kind;
}

async function take(file: File | undefined) {
  if (!file) return;
  say(`Reading ${file.name}…`, 'busy');
  try {
    const { manifest, images } = readPackage(new Uint8Array(await file.arrayBuffer()));
    say(`Laying out “${manifest.title || 'Untitled flow'}”…`, 'busy');
    const message: ToCode = { type: 'import', manifest, images };
    parent.postMessage({ pluginMessage: message }, '*');
  } catch (error) {
    say(error instanceof Error ? error.message : String(error), 'error');
  }
}

window.onmessage = (event: MessageEvent) => {
  const reply = event.data?.pluginMessage as ToWindow | undefined;
  if (reply?.type === 'imported') {
    const screens = `${reply.screens} ${reply.screens === 1 ? 'screen' : 'screens'}`;
    say(`Imported “${reply.title}” (${screens}). Drop another package to import it too.`, 'done');
  } else if (reply?.type === 'failed') {
    say(reply.message, 'error');
  }
};

chooser.addEventListener('change', () => void take(chooser.files?.[0]));
document.getElementById('choose')?.addEventListener('click', () => chooser.click());
for (const type of ['dragenter', 'dragover'] as const) {
  document.addEventListener(type, (event) => {
    event.preventDefault();
    zone.classList.add('over');
  });
}
document.addEventListener('dragleave', (event) => {
  if (event.relatedTarget === null) zone.classList.remove('over');
});
document.addEventListener('drop', (event) => {
  event.preventDefault();
  zone.classList.remove('over');
  void take(event.dataTransfer?.files[0]);
});
