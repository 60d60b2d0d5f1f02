// Type declarations of gra-overlay.js, the page's side of the gra-overlay host.

// ---- messages from the page to the host ---------------------------------------------------------

/** The interaction modes: hidden (nothing shown), passive (shown, the game keeps the keyboard), active. */
export type Mode = 'hidden' | 'passive' | 'active';

/** The two files the host keeps for the page in the player's documents folder; it refuses every other name. */
export type PageFileName = 'gra_pad.json' | 'gra_overlay.json';

/** A hit rectangle in CSS pixels of the page: x, y, width, height. */
export type Rect = [x: number, y: number, width: number, height: number];

/** "I listen": the host answers with the held-back show message, notes and its "host" message. */
export interface ReadyMessage { type: 'ready' }
/** The page has drawn: the host takes down its opaque cover (once). */
export interface CoverMessage { type: 'cover'; on: false }
/** Hide the overlay (mode hidden). The answer to a "close" request. */
export interface HideMessage { type: 'hide' }
/** Switch the interaction mode; any value but "active" or "passive" hides. */
export interface ModeMessage { type: 'mode'; mode: Mode }
/** In passive mode, let every mouse event through to the game. */
export interface ThroughMessage { type: 'through'; on: boolean }
/** Sends the game "modal on" or "modal off". */
export interface ModalMessage { type: 'modal'; on: boolean }
/** The parts of the page that are drawn over the game and take the mouse. */
export interface RegionMessage { type: 'region'; rects: Rect[] }
/** Asks for a page file; answered with a FileMessage. */
export interface LoadMessage { type: 'load'; file: PageFileName }
/** Writes a page file whole; answered with a SavedMessage. */
export interface SaveMessage { type: 'save'; file: PageFileName; text: string }
/** Sends the game "game <cmd> <arg>". cmd: 1 to 39 of a-z and _; arg: under 200 UTF-8 bytes, one line. */
export interface GameMessage { type: 'game'; cmd: string; arg: string }
/** A line for the host's log, written as "page: <text>". */
export interface LogMessage { type: 'log'; text: string }

export type PageMessage =
  | ReadyMessage | CoverMessage | HideMessage | ModeMessage | ThroughMessage | ModalMessage
  | RegionMessage | LoadMessage | SaveMessage | GameMessage | LogMessage;

// ---- messages from the host to the page ---------------------------------------------------------

/** The overlay was shown (made active). pad is the game's text for the page, '' when none came. */
export interface ShowMessage { type: 'show'; pad: string }
/** The game asked to hide: finish up, then call hide(). */
export interface CloseMessage { type: 'close' }
/** The game was minimised or another application came in front. */
export interface AwayMessage { type: 'away' }
/** The game is in front again. */
export interface BackMessage { type: 'back' }
/** A note from the game: any JSON value the game sent. */
export interface NoteMessage { type: 'note'; note: unknown }
/** Sent last at every "ready": what the host offers. */
export interface HostMessage { type: 'host'; through: boolean; hit: boolean }
/** The answer to a load: ok is false when the file is missing or the name was refused (text is then ''). */
export interface FileMessage { type: 'file'; name: string; ok: boolean; text: string }
/** The answer to a save. */
export interface SavedMessage { type: 'saved'; name: string; ok: boolean }
/**
 * Why the overlay cannot work, or that it can again: "elevated" (the game runs as administrator
 * and the overlay does not), "fullscreen" (the game went exclusive fullscreen, where nothing can
 * be seen over it), "windowed" (it left exclusive fullscreen). Held until the page is ready.
 */
export interface WarnMessage { type: 'warn'; what: Warning }
export type Warning = 'elevated' | 'fullscreen' | 'windowed';

export type HostTypeMessage =
  | ShowMessage | CloseMessage | AwayMessage | BackMessage | NoteMessage | HostMessage | FileMessage | SavedMessage
  | WarnMessage;

/** The events of an Overlay and what their handlers receive. */
export interface OverlayEvents {
  show: ShowMessage;
  close: CloseMessage;
  away: AwayMessage;
  back: BackMessage;
  note: NoteMessage;
  warn: WarnMessage;
  host: HostMessage;
  file: FileMessage;
  saved: SavedMessage;
  /** Whatever the game sent with its "page" command that is not one of the host's own types. */
  page: unknown;
  /** Every message from the host, as received, before its own event. */
  message: unknown;
}

// ---- the connection -----------------------------------------------------------------------------

/** The transport: window.chrome.webview in the overlay, or anything shaped like it. */
export interface WebviewLike {
  postMessage(message: unknown): void;
  addEventListener(type: 'message', listener: (event: { data: unknown }) => void): void;
  removeEventListener(type: 'message', listener: (event: { data: unknown }) => void): void;
}

export interface ConnectOptions {
  /** Post "ready" at once (default true). Turn off to call ready() yourself when your page is set up. */
  ready?: boolean;
  /** Take down the host's cover after the first frame the loaded page has drawn (default true). */
  coverOff?: boolean;
  /** Elements with this attribute make the hit region (default 'data-hit'); null or '' to send regions yourself. */
  hitAttribute?: string | null;
  /** Milliseconds load() and save() wait for the host's answer before they reject (default 10000; 0 waits for ever). */
  replyTimeout?: number;
  /** Send uncaught errors and failing handlers to the host's log (default true; the first 20). */
  reportErrors?: boolean;
  /** In an ordinary browser, show the development panel (default true; graOverlayDev is there either way). */
  devPanel?: boolean;
  /** The transport to use instead of window.chrome.webview (for tests). */
  webview?: WebviewLike | null;
  /** The window to work in instead of the global one (for tests). */
  window?: object | null;
}

export declare class Overlay {
  private constructor();
  /** True when no host is present and the development bridge answers instead. */
  readonly dev: boolean;
  /** True while the game is minimised or another application is in front. */
  readonly away: boolean;
  /** The host's "host" message, or null before it came. */
  readonly host: { through: boolean; hit: boolean } | null;
  /** The hit rectangles last sent. */
  readonly rects: Rect[];

  /** Adds a handler; returns a function that removes it. Unknown event names throw. */
  on<E extends keyof OverlayEvents>(event: E, handler: (detail: OverlayEvents[E]) => void): () => void;
  once<E extends keyof OverlayEvents>(event: E, handler: (detail: OverlayEvents[E]) => void): () => void;
  off<E extends keyof OverlayEvents>(event: E, handler: (detail: OverlayEvents[E]) => void): void;

  /** Posts "ready" if it was not posted yet; returns whether it posted. */
  ready(): boolean;
  /** Takes the host's cover down if that was not asked yet; returns whether it posted. */
  coverOff(): boolean;
  /** Throws RangeError for a name that is not a Mode. */
  mode(name: Mode): void;
  hide(): void;
  through(on?: boolean): void;
  modal(on?: boolean): void;
  log(text: unknown): void;
  /** Throws when the host would drop the command: cmd 1 to 39 of a-z and _, arg under 200 UTF-8 bytes, one line. */
  game(cmd: string, arg?: string | number | boolean): void;
  /** Sends a hit region by hand (for pages with hitAttribute null). */
  region(rects: Rect[]): void;
  /** The file's text, or null when the host has no such file. Rejects for other names or without an answer. */
  load(name: PageFileName): Promise<string | null>;
  /** Whether the host wrote the file. Rejects for other names, texts with \b or \f, or without an answer. */
  save(name: PageFileName, text: string): Promise<boolean>;
  /** load() and JSON.parse; fallback when the file is missing, empty or not JSON. */
  loadJSON<T = unknown>(name: PageFileName, fallback?: T): Promise<T>;
  /** save() of JSON.stringify(value, null, 2). */
  saveJSON(name: PageFileName, value: unknown): Promise<boolean>;
  /** Looks at the marked elements again in the next frame. */
  updateRegion(): void;
  /** Stops listening and watching. */
  disconnect(): void;
}

/** Connects to the host (or the development bridge). The first call's options count; later calls return the same Overlay. */
export declare function connect(options?: ConnectOptions): Overlay;

// ---- building blocks, exported for tests and tools ----------------------------------------------

export declare const MODES: readonly Mode[];
export declare const PAGE_FILES: readonly ['gra_pad.json', 'gra_overlay.json'];
export declare const HOST_TYPES: readonly HostTypeMessage['type'][];
export declare const WARNINGS: readonly Warning[];

/** Builders of every page message, checked as the host checks them; they throw on bad input. */
export declare const messages: {
  readonly ready: () => ReadyMessage;
  readonly cover: () => CoverMessage;
  readonly hide: () => HideMessage;
  readonly mode: (name: Mode) => ModeMessage;
  readonly through: (on: boolean) => ThroughMessage;
  readonly modal: (on: boolean) => ModalMessage;
  readonly region: (rects: Rect[]) => RegionMessage;
  readonly load: (name: PageFileName) => LoadMessage;
  readonly save: (name: PageFileName, text: string) => SaveMessage;
  readonly game: (cmd: string, arg?: string | number | boolean) => GameMessage;
  readonly log: (text: unknown) => LogMessage;
};

/** Turns a host message into the event it raises and that event's detail. */
export declare function readHostMessage(data: unknown):
  | { [E in HostTypeMessage['type']]: { event: E; detail: OverlayEvents[E] } }[HostTypeMessage['type']]
  | { event: 'page'; detail: unknown };

/** Checks a game command as the host does; returns the argument as a string or throws. */
export declare function checkGameCommand(cmd: string, arg?: string | number | boolean): string;

/** The whole-pixel rectangle covering a box. */
export declare function rectOf(box: { left: number; top: number; right: number; bottom: number }): Rect;

/** Length of a text in UTF-8 bytes. */
export declare function utf8Length(text: string): number;

// ---- the development bridge ---------------------------------------------------------------------

/** In an ordinary browser: play the game's side of the host. */
export interface GraOverlayDev {
  /** The game's "show": mode active and a show message (held until the page is ready). */
  show(pad?: string): void;
  /** The game's "hide": a close request when the page is ready, else hidden at once. */
  close(): void;
  /**
   * The game's "note" with its text as the game sends it, one JSON value ('"Find the key"',
   * '{"title":"Quest"}'); other values are sent as their JSON. Passive when hidden, then the note
   * (held until the page is ready); a text that is not one JSON value is dropped with a warning.
   */
  note(json: string | number | boolean | object | null): void;
  away(): void;
  back(): void;
  /** The game's "page": any message, delivered as it is. */
  page(value: unknown): void;
  /** The host's "warn": why the overlay cannot work (held until the page is ready). */
  warn(what: Warning): void;
  readonly state: { mode: Mode; cover: boolean; through: boolean; modal: boolean; rects: Rect[] };
}

declare global {
  interface Window {
    graOverlayDev?: GraOverlayDev;
  }
}
