import { startPlugin, type PluginHost } from './plugin';

// The compiler checks here that Figma's API offers everything the plugin uses.
const host: PluginHost = figma;
startPlugin(host, __html__);
