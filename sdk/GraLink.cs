// GraLink.cs - the game's side of the gra-overlay game link, in one C# file.
//
// Copy this file into a Unity project (any folder under Assets) or any .NET
// game; it needs nothing beyond the .NET base library.
//
// The overlay program listens for short UDP datagrams on 127.0.0.1 (port
// 47632 unless it was started with --port). Each datagram is the five bytes
// "GRAO " followed by a command word and, after one space, an argument. The
// program answers with datagrams of the same shape ("GRAO state active",
// "GRAO modal on", "GRAO game jump 3"), always to one address: the source of
// the last datagram it received, until one arrives from port 47630; from
// then on only to the sender on port 47630. A game therefore sends from
// 47630, and Open binds that port when it is free. docs/game-protocol.md
// describes every command and report.
//
//     GraLink link = GraLink.Open();              // or Open(port)
//     if (!link.Preferred) Debug.LogWarning("replies may go elsewhere");
//     link.Show("Wave 3");
//     GraLinkReport report;
//     while (link.Poll(out report))               // once a frame
//         if (report.Kind == GraLinkReportKind.State) ...;
//     link.Dispose();
//
// Every sending method returns GraLinkResult.Ok or the reason it refused:
// what the program would drop or misread is never sent. That is an argument
// holding a zero character (the program reads only up to it), a datagram
// longer than MaxDatagram bytes, a command word the program does not know,
// a "note" or "page" argument that is not exactly one JSON value (the
// program inserts it without looking at it), and a "window" argument other
// than "borderless" or "framed" (the program reads every other word,
// "Borderless" included, as framed). The checks and their order are those
// of gra_link.h.
//
// One link is used by one thread at a time (in Unity: the main thread). The
// socket never blocks: sends go out at once or fail, and Poll returns at
// once.

using System;
using System.Diagnostics;
using System.Net;
using System.Net.Sockets;
using System.Text;

namespace GraOverlay
{
    /// <summary>What a sending method did; the numbers are those of gra_link.h.</summary>
    public enum GraLinkResult
    {
        Ok = 0,
        Invalid = -1,          // a null command, a closed link, or text that is not UTF-16
        ZeroCharacter = -2,    // the argument holds a zero character
        TooLong = -3,          // the datagram would exceed MaxDatagram bytes
        NotJson = -4,          // "note" or "page" argument is not exactly one JSON value
        UnknownCommand = -5,   // a command word the program does not know
        SendFailed = -7,       // the system refused or shortened the send
        BadWindowArgument = -10, // "window" argument is not "borderless" or "framed"
        LaunchFailed = -11     // Launch: the system could not start the program
    }

    /// <summary>The program's interaction modes, numbered as the program numbers them.</summary>
    public enum GraLinkMode
    {
        Unknown = -1,
        Hidden = 0,
        Passive = 1,
        Active = 2
    }

    public enum GraLinkReportKind
    {
        State = 1, // "state hidden|passive|active": Mode is set
        Modal = 2, // "modal on|off": ModalOn is set
        Game = 3,  // "game <cmd> [arg]": Command and Argument are set
        Other = 4, // anything else after the magic: see Text
        Warn = 5   // "warn elevated|fullscreen|windowed": Warning is set
    }

    /// <summary>Why the overlay cannot work (docs/game-protocol.md tells what to do).</summary>
    public enum GraLinkWarning
    {
        None = 0,       // not a Warn report
        Elevated = 1,   // the game runs elevated and the overlay does not
        Fullscreen = 2, // the game went exclusive fullscreen
        Windowed = 3    // the game left exclusive fullscreen
    }

    /// <summary>One report of the program.</summary>
    public sealed class GraLinkReport
    {
        public GraLinkReportKind Kind;
        public GraLinkMode Mode = GraLinkMode.Unknown;
        public bool ModalOn;
        public GraLinkWarning Warning = GraLinkWarning.None;
        public string Command = ""; // Game: the page's command word
        public string Argument = ""; // Game: its argument, empty when there is none
        public string Text = "";    // the whole text after "GRAO "
    }

    /// <summary>The program's options for GraLink.Launch. Every text is given
    /// as it is; a null (or 0, or false) option is left out, so that the
    /// program takes its default.</summary>
    public sealed class GraLinkLaunchOptions
    {
        public string Program;   // path of gra-overlay.exe; must not hold a '"'
        public string Web;       // --web FOLDER: the page's folder
        public string Doc;       // --doc FOLDER: the page's files and gra_keys.txt
        public int Port;         // --port N: where the program listens (0: 47632)
        public string Game;      // --game TITLE: the game window's exact title
        public string GameClass; // --game-class CLASS: its exact window class
        public string Mode;      // --mode child|owned
        public string Log;       // --log FILE
        public string Data;      // --data FOLDER: the browser's user data
        public bool Show;        // --show: the overlay shown at start
        // Not on Windows: the program runs through this one (for example
        // "wine"), which gets the program and its options as its words.
        public string Runner;
    }

    public sealed class GraLink : IDisposable
    {
        /// <summary>Where the program listens unless it was started with another --port.</summary>
        public const int DefaultHostPort = 47632;
        /// <summary>The source port whose datagrams the program prefers as its reply target.</summary>
        public const int GamePort = 47630;
        /// <summary>The most bytes an IPv4 UDP datagram carries, magic and command word included.</summary>
        public const int MaxDatagram = 65507;
        /// <summary>The longest report text (after the magic) that Poll accepts; the
        /// program's own are at most 244 bytes.</summary>
        public const int ReportMax = 500;

        static readonly byte[] Magic = { (byte)'G', (byte)'R', (byte)'A', (byte)'O', (byte)' ' };
        static readonly string[] Commands =
            { "show", "hide", "toggle", "note", "reload", "page", "state", "window", "bye" };
        // Refuses lone surrogates instead of sending U+FFFD in their place.
        static readonly UTF8Encoding StrictUtf8 = new UTF8Encoding(false, true);
        // Windows reports a send to a closed port as an error of the next
        // receive; SIO_UDP_CONNRESET switches that off.
        const int SioUdpConnReset = unchecked((int)0x9800000C);

        Socket socket;
        readonly IPEndPoint program;
        // One byte more than the longest accepted datagram, so that a longer
        // one shows itself by filling the buffer.
        readonly byte[] receiveBuffer = new byte[5 + ReportMax + 1];

        /// <summary>The program's port that datagrams go to.</summary>
        public int HostPort { get; private set; }
        /// <summary>The source port this link got.</summary>
        public int LocalPort { get; private set; }
        /// <summary>True when LocalPort is GamePort, so that the program's replies come here.</summary>
        public bool Preferred { get { return LocalPort == GamePort; } }
        public bool IsOpen { get { return socket != null; } }

        GraLink(Socket socket, int hostPort)
        {
            this.socket = socket;
            HostPort = hostPort;
            LocalPort = ((IPEndPoint)socket.LocalEndPoint).Port;
            program = new IPEndPoint(IPAddress.Loopback, hostPort);
        }

        /// <summary>Opens the link to the program on 127.0.0.1:hostPort (0: 47632),
        /// from port 47630 when it is free, else from an ephemeral port.
        /// Throws SocketException when no socket can be had.</summary>
        public static GraLink Open(int hostPort = 0)
        {
            try
            {
                return OpenPort(hostPort, GamePort);
            }
            catch (SocketException)
            {
                return OpenPort(hostPort, 0); // 47630 is taken
            }
        }

        /// <summary>As Open, but binds exactly localPort (0: an ephemeral port).</summary>
        public static GraLink OpenPort(int hostPort, int localPort)
        {
            if (hostPort < 0 || hostPort > 65535 || localPort < 0 || localPort > 65535)
                throw new ArgumentOutOfRangeException(hostPort < 0 || hostPort > 65535 ? "hostPort" : "localPort");
            Socket s = new Socket(AddressFamily.InterNetwork, SocketType.Dgram, ProtocolType.Udp);
            try
            {
                bool windows = Environment.OSVersion.Platform == PlatformID.Win32NT;
                // Some runtimes (Mono) turn SO_REUSEADDR on for every socket,
                // which lets two UDP sockets share port 47630 and split the
                // program's replies between them. On Windows, exclusive use
                // also keeps another program's SO_REUSEADDR off the port.
                s.SetSocketOption(SocketOptionLevel.Socket, SocketOptionName.ReuseAddress, false);
                if (windows && localPort != 0) s.ExclusiveAddressUse = true;
                s.Bind(new IPEndPoint(IPAddress.Loopback, localPort));
                s.Blocking = false;
                if (windows) QuietConnectionResets(s);
                return new GraLink(s, hostPort == 0 ? DefaultHostPort : hostPort);
            }
            catch
            {
                s.Close();
                throw;
            }
        }

        static void QuietConnectionResets(Socket s)
        {
            try
            {
                s.IOControl(SioUdpConnReset, new byte[] { 0, 0, 0, 0 }, null);
            }
            catch (SocketException)
            {
                // not offered by this runtime: Poll skips the resets instead
            }
            catch (PlatformNotSupportedException)
            {
            }
        }

        public void Dispose()
        {
            if (socket == null) return;
            socket.Close();
            socket = null;
        }

        // ---- one method per command ----

        /// <summary>Shows the overlay; a null or empty pad sends the bare command.</summary>
        public GraLinkResult Show(string pad = null) { return Send("show", pad); }
        public GraLinkResult Hide() { return Send("hide", null); }
        public GraLinkResult Toggle(string pad = null) { return Send("toggle", pad); }
        /// <summary>jsonValue is any one JSON value: "\"a string\"", "{\"hp\":3}", "42".</summary>
        public GraLinkResult Note(string jsonValue) { return Send("note", jsonValue); }
        /// <summary>Sends plain text as a note, made into a JSON string first.</summary>
        public GraLinkResult NoteText(string text) { return Send("note", JsonString(text)); }
        /// <summary>json is one complete JSON text that the page receives as it stands.</summary>
        public GraLinkResult Page(string json) { return Send("page", json); }
        public GraLinkResult Reload() { return Send("reload", null); }
        /// <summary>Asks for a "state" report; read it with Poll.</summary>
        public GraLinkResult State() { return Send("state", null); }
        /// <summary>True: make the game window borderless; false: give its frame back.</summary>
        public GraLinkResult Window(bool borderless) { return Send("window", borderless ? "borderless" : "framed"); }
        /// <summary>Ends the program.</summary>
        public GraLinkResult Bye() { return Send("bye", null); }

        /// <summary>Any of the nine commands by name; a null or empty argument sends
        /// the bare command. The methods above all end here.</summary>
        public GraLinkResult Send(string command, string argument)
        {
            byte[] datagram;
            if (socket == null) return GraLinkResult.Invalid;
            GraLinkResult r = Build(command, argument, out datagram);
            if (r != GraLinkResult.Ok) return r;
            try
            {
                return socket.SendTo(datagram, program) == datagram.Length ? GraLinkResult.Ok : GraLinkResult.SendFailed;
            }
            catch (SocketException)
            {
                return GraLinkResult.SendFailed;
            }
        }

        /// <summary>The datagram for command and argument, or the reason it would be
        /// refused, without a link: the checks of Send in their order.</summary>
        public static GraLinkResult Build(string command, string argument, out byte[] datagram)
        {
            datagram = null;
            if (command == null) return GraLinkResult.Invalid;
            if (Array.IndexOf(Commands, command) < 0) return GraLinkResult.UnknownCommand;
            argument = argument ?? "";
            if (argument.IndexOf('\0') >= 0) return GraLinkResult.ZeroCharacter;
            byte[] arg;
            try
            {
                arg = StrictUtf8.GetBytes(argument);
            }
            catch (ArgumentException)
            {
                return GraLinkResult.Invalid;
            }
            int total = Magic.Length + command.Length + (arg.Length > 0 ? 1 + arg.Length : 0);
            if (arg.Length > MaxDatagram || total > MaxDatagram) return GraLinkResult.TooLong;
            if ((command == "note" || command == "page") && !IsJson(argument)) return GraLinkResult.NotJson;
            if (command == "window" && argument != "borderless" && argument != "framed")
                return GraLinkResult.BadWindowArgument;
            datagram = new byte[total];
            Magic.CopyTo(datagram, 0);
            Encoding.ASCII.GetBytes(command, 0, command.Length, datagram, Magic.Length);
            if (arg.Length > 0)
            {
                datagram[Magic.Length + command.Length] = (byte)' ';
                arg.CopyTo(datagram, Magic.Length + command.Length + 1);
            }
            return GraLinkResult.Ok;
        }

        // ---- reports ----

        /// <summary>Reads the next report of the program without blocking: true with
        /// it in report, false when none is waiting. Datagrams from anyone but the
        /// program's address, without the magic, or longer than any report are
        /// skipped.</summary>
        public bool Poll(out GraLinkReport report)
        {
            report = null;
            if (socket == null) return false;
            for (;;)
            {
                if (!socket.Poll(0, SelectMode.SelectRead)) return false;
                EndPoint from = new IPEndPoint(IPAddress.Any, 0);
                int n;
                try
                {
                    n = socket.ReceiveFrom(receiveBuffer, ref from);
                }
                catch (SocketException e)
                {
                    if (e.SocketErrorCode == SocketError.WouldBlock) return false;
                    // longer than any report, or an earlier send met a closed port
                    if (e.SocketErrorCode == SocketError.MessageSize ||
                        e.SocketErrorCode == SocketError.ConnectionReset) continue;
                    throw;
                }
                if (n >= receiveBuffer.Length) continue;
                IPEndPoint sender = (IPEndPoint)from;
                if (!sender.Address.Equals(IPAddress.Loopback) || sender.Port != HostPort) continue;
                report = ParseReport(receiveBuffer, n);
                if (report != null) return true;
            }
        }

        /// <summary>Raised by DispatchReports for each report, on the thread that
        /// calls it.</summary>
        public event Action<GraLinkReport> ReportReceived;

        /// <summary>Reads every report that is waiting, without blocking, and
        /// raises ReportReceived for each in the order they came; returns how
        /// many there were. In Unity, call it once a frame from Update.</summary>
        public int DispatchReports()
        {
            int count = 0;
            GraLinkReport report;
            while (Poll(out report))
            {
                count++;
                Action<GraLinkReport> handler = ReportReceived;
                if (handler != null) handler(report);
            }
            return count;
        }

        /// <summary>Waits up to timeoutMs (negative: for ever) for a datagram:
        /// true when one is waiting, false when the time is up or the link is
        /// closed.</summary>
        public bool Wait(int timeoutMs)
        {
            if (socket == null) return false;
            // Socket.Poll takes microseconds in an int: wait in slices.
            const int sliceMs = 1000000;
            Stopwatch clock = Stopwatch.StartNew();
            for (;;)
            {
                long left = timeoutMs < 0 ? sliceMs : timeoutMs - clock.ElapsedMilliseconds;
                if (left < 0) left = 0;
                int ms = (int)Math.Min(left, sliceMs);
                if (socket.Poll(ms * 1000, SelectMode.SelectRead)) return true;
                if (timeoutMs >= 0 && clock.ElapsedMilliseconds >= timeoutMs) return false;
            }
        }

        /// <summary>Polls and waits until a report arrives (true, with it in
        /// report) or timeoutMs have passed (false); negative: for ever.</summary>
        public bool NextReport(int timeoutMs, out GraLinkReport report)
        {
            Stopwatch clock = Stopwatch.StartNew();
            for (;;)
            {
                if (Poll(out report)) return true;
                if (socket == null) return false;
                long left = -1;
                if (timeoutMs >= 0)
                {
                    left = timeoutMs - clock.ElapsedMilliseconds;
                    if (left <= 0) return false;
                }
                Wait((int)left);
            }
        }

        /// <summary>Sends "state" every quarter of a second until the program
        /// answers with a state report (true, with its mode), or timeoutMs have
        /// passed (false; negative: for ever). Other reports that arrive
        /// meanwhile are read and dropped. The answer comes back to this link
        /// only when it is the program's reply target.</summary>
        public bool WaitReady(int timeoutMs, out GraLinkMode mode)
        {
            mode = GraLinkMode.Unknown;
            if (socket == null) return false;
            Stopwatch clock = Stopwatch.StartNew();
            for (;;)
            {
                long slice = 250;
                if (timeoutMs >= 0)
                {
                    long left = timeoutMs - clock.ElapsedMilliseconds;
                    if (left <= 0) return false;
                    slice = Math.Min(slice, left);
                }
                // A failed send is taken as "not yet": the program may still be starting.
                State();
                long roundEnd = clock.ElapsedMilliseconds + slice;
                GraLinkReport report;
                while (NextReport((int)Math.Max(0, roundEnd - clock.ElapsedMilliseconds), out report))
                {
                    if (report.Kind != GraLinkReportKind.State) continue;
                    mode = report.Mode;
                    return true;
                }
            }
        }

        /// <summary>Parses one received datagram: the report when it begins with the
        /// magic and its text fits, otherwise null. Like the program, the text is
        /// read only up to a zero byte.</summary>
        public static GraLinkReport ParseReport(byte[] data, int length)
        {
            if (data == null || length < Magic.Length || length > data.Length) return null;
            for (int i = 0; i < Magic.Length; i++)
                if (data[i] != Magic[i]) return null;
            int end = Array.IndexOf(data, (byte)0, 0, length);
            if (end < 0) end = length;
            int textLength = end - Magic.Length;
            if (textLength > ReportMax) return null;
            GraLinkReport r = new GraLinkReport();
            r.Text = Encoding.UTF8.GetString(data, Magic.Length, textLength);
            Classify(r, data, Magic.Length, textLength);
            return r;
        }

        static void Classify(GraLinkReport r, byte[] data, int start, int length)
        {
            switch (r.Text)
            {
                case "state hidden": r.Kind = GraLinkReportKind.State; r.Mode = GraLinkMode.Hidden; return;
                case "state passive": r.Kind = GraLinkReportKind.State; r.Mode = GraLinkMode.Passive; return;
                case "state active": r.Kind = GraLinkReportKind.State; r.Mode = GraLinkMode.Active; return;
                case "modal on": r.Kind = GraLinkReportKind.Modal; r.ModalOn = true; return;
                case "modal off": r.Kind = GraLinkReportKind.Modal; r.ModalOn = false; return;
                case "warn elevated": r.Kind = GraLinkReportKind.Warn; r.Warning = GraLinkWarning.Elevated; return;
                case "warn fullscreen": r.Kind = GraLinkReportKind.Warn; r.Warning = GraLinkWarning.Fullscreen; return;
                case "warn windowed": r.Kind = GraLinkReportKind.Warn; r.Warning = GraLinkWarning.Windowed; return;
            }
            r.Kind = GraLinkReportKind.Other;
            const int gameLength = 5; // "game "
            if (length <= gameLength || Encoding.ASCII.GetString(data, start, gameLength) != "game ") return;
            int cmdStart = start + gameLength, textEnd = start + length;
            int space = Array.IndexOf(data, (byte)' ', cmdStart, textEnd - cmdStart);
            int cmdLength = (space < 0 ? textEnd : space) - cmdStart;
            int argLength = space < 0 ? 0 : textEnd - space - 1;
            // The same bounds as gra_link.h's report record: a command word of
            // 1 to 39 bytes and an argument under 200 bytes, as the program sends.
            if (cmdLength < 1 || cmdLength > 39 || argLength > 199) return;
            r.Kind = GraLinkReportKind.Game;
            r.Command = Encoding.UTF8.GetString(data, cmdStart, cmdLength);
            r.Argument = space < 0 ? "" : Encoding.UTF8.GetString(data, space + 1, argLength);
        }

        // ---- starting the program ----

        // Windows' CreateProcess takes at most 32,767 characters, the zero included.
        const int CommandLineMax = 32767 - 1;

        /// <summary>argument quoted for Windows' CommandLineToArgvW: as it stands
        /// when it is not empty and holds no space, tab, line feed, vertical tab
        /// or quotation mark; otherwise in quotation marks, each quotation mark
        /// escaped by a backslash and the backslashes before a quotation mark (or
        /// before the closing one) doubled. null is the empty argument.</summary>
        public static string QuoteArgument(string argument)
        {
            argument = argument ?? "";
            if (argument.Length > 0 && argument.IndexOfAny(new[] { ' ', '\t', '\n', '\v', '"' }) < 0) return argument;
            StringBuilder b = new StringBuilder(argument.Length + 2);
            b.Append('"');
            int backslashes = 0;
            foreach (char c in argument)
            {
                if (c == '\\')
                {
                    backslashes++;
                    continue;
                }
                // Backslashes count only before a quotation mark: there each one
                // is doubled, and one more escapes the mark itself.
                b.Append('\\', c == '"' ? 2 * backslashes + 1 : backslashes);
                b.Append(c);
                backslashes = 0;
            }
            b.Append('\\', 2 * backslashes); // they come before the closing mark
            return b.Append('"').ToString();
        }

        /// <summary>The program's options as words, in the order gra_link.h
        /// writes them (the program itself not included).</summary>
        public static string[] Arguments(GraLinkLaunchOptions o)
        {
            var words = new System.Collections.Generic.List<string>();
            Action<string, string> option = (name, value) =>
            {
                if (value == null) return;
                words.Add(name);
                words.Add(value);
            };
            option("--web", o.Web);
            option("--doc", o.Doc);
            option("--port", o.Port != 0 ? o.Port.ToString(System.Globalization.CultureInfo.InvariantCulture) : null);
            option("--game", o.Game);
            option("--game-class", o.GameClass);
            option("--mode", o.Mode);
            option("--log", o.Log);
            option("--data", o.Data);
            if (o.Show) words.Add("--show");
            return words.ToArray();
        }

        /// <summary>The whole Windows command line that Launch uses: the program
        /// in quotation marks, then each option and its value quoted for
        /// CommandLineToArgvW; null when there is no program, an empty one, or
        /// one holding a quotation mark.</summary>
        public static string CommandLine(GraLinkLaunchOptions options)
        {
            if (options == null || string.IsNullOrEmpty(options.Program) || options.Program.IndexOf('"') >= 0) return null;
            // The program's own name is split by another rule: everything up to
            // the next quotation mark, backslashes included, so it is quoted as it is.
            StringBuilder b = new StringBuilder("\"" + options.Program + "\"");
            foreach (string word in Arguments(options)) b.Append(' ').Append(QuoteArgument(word));
            return b.ToString();
        }

        /// <summary>Starts the program with options: Ok with process (wait on
        /// it, end it, dispose of it), Invalid for unusable options (no program,
        /// a '"' in its path, a zero character or a lone surrogate in a value),
        /// TooLong for a command line over Windows' 32,767 characters, or
        /// LaunchFailed with the system's error number in systemError (2: no such
        /// file). Every value reaches the program exactly as given. The program
        /// starts with the game's environment and working folder.</summary>
        public static GraLinkResult Launch(GraLinkLaunchOptions options, out Process process, out int systemError)
        {
            process = null;
            systemError = 0;
            string line = CommandLine(options);
            if (line == null || line.IndexOf('\0') >= 0) return GraLinkResult.Invalid;
            try
            {
                StrictUtf8.GetByteCount(line);
            }
            catch (ArgumentException)
            {
                return GraLinkResult.Invalid;
            }
            if (line.Length > CommandLineMax) return GraLinkResult.TooLong;
            ProcessStartInfo start = new ProcessStartInfo();
            start.UseShellExecute = false;
            bool windows = Environment.OSVersion.Platform == PlatformID.Win32NT;
            if (windows && options.Runner == null)
            {
                // .NET writes the command line as "FileName" Arguments, which is line.
                start.FileName = options.Program;
                start.Arguments = string.Join(" ", Array.ConvertAll(Arguments(options), QuoteArgument));
            }
            else
            {
                start.FileName = options.Runner ?? "wine";
                var words = new System.Collections.Generic.List<string> { options.Program };
                words.AddRange(Arguments(options));
                start.Arguments = RunnerArguments(words, windows);
            }
            try
            {
                process = Process.Start(start);
                return GraLinkResult.Ok;
            }
            catch (System.ComponentModel.Win32Exception e)
            {
                systemError = e.NativeErrorCode;
                return GraLinkResult.LaunchFailed;
            }
            catch (Exception e)
            {
                if (e is OutOfMemoryException) throw;
                systemError = 2;
                return GraLinkResult.LaunchFailed;
            }
        }

        public static GraLinkResult Launch(GraLinkLaunchOptions options, out Process process)
        {
            int ignored;
            return Launch(options, out process, out ignored);
        }

        // The words for a runner, written so that this runtime splits them back:
        // Mono on Linux and macOS splits Arguments by the POSIX shell's quoting,
        // .NET everywhere by the Windows rules.
        static string RunnerArguments(System.Collections.Generic.List<string> words, bool windows)
        {
            bool mono = Type.GetType("Mono.Runtime") != null;
            StringBuilder b = new StringBuilder();
            foreach (string word in words)
            {
                if (b.Length > 0) b.Append(' ');
                if (mono && !windows) b.Append('\'').Append(word.Replace("'", "'\\''")).Append('\'');
                else b.Append(QuoteArgument(word));
            }
            return b.ToString();
        }

        // ---- texts ----

        /// <summary>text as a JSON string, quotes included. Quotation marks,
        /// backslashes and control characters (a zero character too) are escaped;
        /// other characters pass.</summary>
        public static string JsonString(string text)
        {
            StringBuilder b = new StringBuilder((text ?? "").Length + 2);
            b.Append('"');
            foreach (char c in text ?? "")
            {
                switch (c)
                {
                    case '"': b.Append("\\\""); break;
                    case '\\': b.Append("\\\\"); break;
                    case '\b': b.Append("\\b"); break;
                    case '\f': b.Append("\\f"); break;
                    case '\n': b.Append("\\n"); break;
                    case '\r': b.Append("\\r"); break;
                    case '\t': b.Append("\\t"); break;
                    default:
                        if (c < 0x20) b.Append("\\u00").Append(((int)c).ToString("x2"));
                        else b.Append(c);
                        break;
                }
            }
            return b.Append('"').ToString();
        }

        /// <summary>True when text is exactly one JSON value (RFC 8259), with
        /// nothing but white space around it. Nesting deeper than 256 levels is
        /// refused.</summary>
        public static bool IsJson(string text)
        {
            if (text == null) return false;
            JsonChecker j = new JsonChecker(text);
            if (!j.Value()) return false;
            j.Space();
            return j.AtEnd;
        }

        public static string ErrorText(GraLinkResult result)
        {
            switch (result)
            {
                case GraLinkResult.Ok: return "ok";
                case GraLinkResult.Invalid: return "invalid argument or link not open";
                case GraLinkResult.ZeroCharacter: return "the argument holds a zero byte";
                case GraLinkResult.TooLong: return "the datagram would be longer than 65507 bytes";
                case GraLinkResult.NotJson: return "the argument is not valid JSON";
                case GraLinkResult.UnknownCommand: return "unknown command";
                case GraLinkResult.SendFailed: return "the datagram could not be sent";
                case GraLinkResult.BadWindowArgument: return "the window argument must be \"borderless\" or \"framed\"";
                case GraLinkResult.LaunchFailed: return "the program could not be started";
                default: return "unknown error";
            }
        }

        /// <summary>"hidden", "passive", "active", or "?" for anything else.</summary>
        public static string ModeName(GraLinkMode mode)
        {
            switch (mode)
            {
                case GraLinkMode.Hidden: return "hidden";
                case GraLinkMode.Passive: return "passive";
                case GraLinkMode.Active: return "active";
                default: return "?";
            }
        }

        // A small recursive-descent checker: it accepts exactly the JSON
        // grammar and builds nothing.
        sealed class JsonChecker
        {
            readonly string s;
            int p, depth;

            public JsonChecker(string text) { s = text; }

            public bool AtEnd { get { return p == s.Length; } }

            public void Space()
            {
                while (p < s.Length && (s[p] == ' ' || s[p] == '\t' || s[p] == '\n' || s[p] == '\r')) p++;
            }

            bool Take(char c)
            {
                if (p < s.Length && s[p] == c)
                {
                    p++;
                    return true;
                }
                return false;
            }

            bool Digits()
            {
                int start = p;
                while (p < s.Length && s[p] >= '0' && s[p] <= '9') p++;
                return p > start;
            }

            bool Number()
            {
                Take('-');
                if (!Take('0') && !Digits()) return false;
                if (Take('.') && !Digits()) return false;
                if (Take('e') || Take('E'))
                {
                    if (!Take('+')) Take('-');
                    if (!Digits()) return false;
                }
                return true;
            }

            bool Hex4()
            {
                for (int i = 0; i < 4; i++, p++)
                    if (p >= s.Length || Uri.IsHexDigit(s[p]) == false) return false;
                return true;
            }

            bool QuotedString()
            {
                if (!Take('"')) return false;
                while (p < s.Length)
                {
                    char c = s[p++];
                    if (c == '"') return true;
                    if (c < 0x20) return false;
                    if (c == '\\')
                    {
                        if (p >= s.Length) return false;
                        c = s[p++];
                        if (c == 'u')
                        {
                            if (!Hex4()) return false;
                        }
                        else if ("\"\\/bfnrt".IndexOf(c) < 0)
                        {
                            return false;
                        }
                    }
                }
                return false;
            }

            bool Word(string word)
            {
                if (p + word.Length > s.Length || string.CompareOrdinal(s, p, word, 0, word.Length) != 0) return false;
                p += word.Length;
                return true;
            }

            // Object and array share their shape: open, members separated by
            // commas, close; an object member is a string, a colon and a value.
            bool Container(char close, bool isObject)
            {
                bool ok = true;
                if (++depth > 256) return false;
                Space();
                if (!Take(close))
                {
                    do
                    {
                        Space();
                        if (isObject)
                        {
                            ok = QuotedString();
                            Space();
                            ok = ok && Take(':');
                        }
                        ok = ok && Value();
                        Space();
                    } while (ok && Take(','));
                    ok = ok && Take(close);
                }
                depth--;
                return ok;
            }

            public bool Value()
            {
                Space();
                if (p >= s.Length) return false;
                switch (s[p])
                {
                    case '{': p++; return Container('}', true);
                    case '[': p++; return Container(']', false);
                    case '"': return QuotedString();
                    case 't': return Word("true");
                    case 'f': return Word("false");
                    case 'n': return Word("null");
                    default: return Number();
                }
            }
        }
    }
}
