// The tests of sdk/GraLink.cs, run natively with mono against a UDP peer on
// 127.0.0.1 that plays the program's side of the link:
//
//     mono gralink_tests.exe LINK_CASES_FILE
//
// The table of link cases is the one that gra_link.h is tested with. Each
// test prints "ok <name>" or "FAILED <name>: <why>"; the exit status is the
// number of failed tests (at most 100).

using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.IO;
using System.Net;
using System.Net.Sockets;
using System.Text;
using System.Threading;
using GraOverlay;

sealed class CheckFailed : Exception
{
    public CheckFailed(string message) : base(message) { }
}

// The program's side of the link: receives what a link sends, answers it.
sealed class Peer : IDisposable
{
    public readonly Socket Socket = new Socket(AddressFamily.InterNetwork, SocketType.Dgram, ProtocolType.Udp);

    public Peer(int port = 0)
    {
        Socket.Bind(new IPEndPoint(IPAddress.Loopback, port));
    }

    public int Port { get { return ((IPEndPoint)Socket.LocalEndPoint).Port; } }

    // The next datagram's bytes and sender, or null after timeoutMs.
    public byte[] Receive(out IPEndPoint from, int timeoutMs = 2000)
    {
        from = null;
        if (!Socket.Poll(timeoutMs * 1000, SelectMode.SelectRead)) return null;
        byte[] buffer = new byte[65536];
        EndPoint sender = new IPEndPoint(IPAddress.Any, 0);
        int n = Socket.ReceiveFrom(buffer, ref sender);
        from = (IPEndPoint)sender;
        byte[] d = new byte[n];
        Array.Copy(buffer, d, n);
        return d;
    }

    public byte[] Receive(int timeoutMs = 2000)
    {
        IPEndPoint ignored;
        return Receive(out ignored, timeoutMs);
    }

    public void SendTo(int port, byte[] bytes)
    {
        Socket.SendTo(bytes, new IPEndPoint(IPAddress.Loopback, port));
    }

    public void SendTo(int port, string text) { SendTo(port, Encoding.UTF8.GetBytes(text)); }

    public void Dispose() { Socket.Close(); }
}

static class GraLinkTests
{
    static string casesPath;

    static void Check(bool condition, string what)
    {
        if (!condition) throw new CheckFailed(what);
    }

    static void Equal<T>(T expected, T actual, string what = "")
    {
        if (!EqualityComparer<T>.Default.Equals(expected, actual))
            throw new CheckFailed(string.Format("{0} expected <{1}>, got <{2}>", what, expected, actual));
    }

    static string Text(byte[] bytes) { return bytes == null ? "<nothing>" : Encoding.UTF8.GetString(bytes); }

    static byte[] Bytes(string s) { return Encoding.UTF8.GetBytes(s); }

    // ---- the shared table ----

    sealed class LinkCase
    {
        public int Line;
        public string Command, Outcome;
        public byte[] Argument;
    }

    static byte[] Unescape(string text)
    {
        List<byte> o = new List<byte>();
        byte[] raw = Encoding.UTF8.GetBytes(text);
        for (int i = 0; i < raw.Length; i++)
        {
            if (raw[i] != (byte)'\\' || i + 1 == raw.Length)
            {
                o.Add(raw[i]);
                continue;
            }
            char c = (char)raw[++i];
            if (c == 't') o.Add(9);
            else if (c == 'n') o.Add(10);
            else if (c == 'r') o.Add(13);
            else if (c == '0') o.Add(0);
            else if (c == 'x')
            {
                o.Add(Convert.ToByte(Encoding.ASCII.GetString(raw, i + 1, 2), 16));
                i += 2;
            }
            else o.Add((byte)c);
        }
        return o.ToArray();
    }

    static List<LinkCase> ReadCases()
    {
        List<LinkCase> cases = new List<LinkCase>();
        string[] lines = File.ReadAllText(casesPath, Encoding.UTF8).Split('\n');
        for (int i = 0; i < lines.Length; i++)
        {
            string line = lines[i];
            if (line.Length == 0 || line[0] == '#') continue;
            string[] f = line.Split('\t');
            byte[] piece = Unescape(f[1]);
            int repeat = f.Length > 3 ? int.Parse(f[3]) : 1;
            byte[] arg = new byte[piece.Length * repeat];
            for (int k = 0; k < repeat; k++) piece.CopyTo(arg, k * piece.Length);
            LinkCase c = new LinkCase();
            c.Line = i + 1;
            c.Command = f[0];
            c.Argument = arg;
            c.Outcome = f[2];
            cases.Add(c);
        }
        return cases;
    }

    static GraLinkResult ExpectedResult(string outcome)
    {
        switch (outcome)
        {
            case "sent": return GraLinkResult.Ok;
            case "zero-byte": return GraLinkResult.ZeroCharacter;
            case "too-long": return GraLinkResult.TooLong;
            case "json": return GraLinkResult.NotJson;
            case "command": return GraLinkResult.UnknownCommand;
            case "window": return GraLinkResult.BadWindowArgument;
            default: throw new CheckFailed("unknown outcome " + outcome);
        }
    }

    static void EachLinkCaseIsSentExactlyOrRefusedWithItsResult()
    {
        List<LinkCase> cases = ReadCases();
        Check(cases.Count >= 40, "the table has " + cases.Count + " cases");
        using (Peer peer = new Peer())
        using (GraLink link = GraLink.OpenPort(peer.Port, 0))
        {
            foreach (LinkCase c in cases)
            {
                string where = "link_cases.txt line " + c.Line + ":";
                // The table's arguments are UTF-8; C# sends text.
                string argument = new UTF8Encoding(false, true).GetString(c.Argument);
                GraLinkResult r = link.Send(c.Command, argument);
                Equal(ExpectedResult(c.Outcome), r, where);
                // A marker after each case shows that a refusal sent nothing.
                Equal(GraLinkResult.Ok, link.State(), where);
                if (r == GraLinkResult.Ok)
                {
                    string wire = "GRAO " + c.Command + (c.Argument.Length == 0 ? "" : " " + argument);
                    Equal(wire, Text(peer.Receive()), where);
                }
                Equal("GRAO state", Text(peer.Receive()), where);
            }
        }
    }

    // ---- opening ----

    static void OpenPortBindsLoopbackAndAnEphemeralPort()
    {
        using (Peer peer = new Peer())
        using (GraLink link = GraLink.OpenPort(peer.Port, 0))
        {
            Equal(peer.Port, link.HostPort);
            Check(link.LocalPort != 0 && link.LocalPort != GraLink.GamePort, "local port " + link.LocalPort);
            Check(!link.Preferred, "preferred");
            Equal(GraLinkResult.Ok, link.Hide());
            IPEndPoint from;
            Equal("GRAO hide", Text(peer.Receive(out from)));
            Equal(IPAddress.Loopback, from.Address);
            Equal(link.LocalPort, from.Port);
        }
    }

    static void OpenPrefersTheGamePortAndFallsBackWhenItIsTaken()
    {
        Peer holder;
        try
        {
            holder = new Peer(GraLink.GamePort);
        }
        catch (SocketException)
        {
            Console.WriteLine("  (47630 is taken by another process: only the fall-back is checked)");
            using (GraLink fallback = GraLink.Open(1))
                Check(!fallback.Preferred && fallback.LocalPort != 0, "fell back to " + fallback.LocalPort);
            return;
        }
        using (Peer peer = new Peer())
        {
            using (GraLink link = GraLink.Open(peer.Port))
            {
                Check(!link.Preferred, "47630 is held, yet the link says preferred");
                Check(link.LocalPort != GraLink.GamePort && link.LocalPort != 0, "port " + link.LocalPort);
            }
            holder.Dispose();
            using (GraLink link = GraLink.Open(peer.Port))
            {
                Equal(GraLink.GamePort, link.LocalPort);
                Check(link.Preferred, "preferred");
                Equal(GraLinkResult.Ok, link.Reload());
                IPEndPoint from;
                Equal("GRAO reload", Text(peer.Receive(out from)));
                Equal(GraLink.GamePort, from.Port);
            }
        }
    }

    static void OpenWithoutAPortAimsAtTheDefaultPort()
    {
        using (GraLink link = GraLink.OpenPort(0, 0))
            Equal(GraLink.DefaultHostPort, link.HostPort);
    }

    static void AClosedLinkRefusesEverything()
    {
        GraLink link = GraLink.OpenPort(1, 0);
        link.Dispose();
        link.Dispose();
        Check(!link.IsOpen, "still open");
        Equal(GraLinkResult.Invalid, link.Show("x"));
        Equal(GraLinkResult.Invalid, link.Send("jump", null));
        GraLinkReport report;
        Check(!link.Poll(out report), "polled a report on a closed link");
    }

    // ---- commands ----

    static void EachCommandMethodSendsItsBytes()
    {
        using (Peer peer = new Peer())
        using (GraLink link = GraLink.OpenPort(peer.Port, 0))
        {
            Equal(GraLinkResult.Ok, link.Show());
            Equal("GRAO show", Text(peer.Receive()));
            Equal(GraLinkResult.Ok, link.Show("Wave 3: \"go\" \\ \u00c4"));
            Equal("GRAO show Wave 3: \"go\" \\ \u00c4", Text(peer.Receive()));
            Equal(GraLinkResult.Ok, link.Hide());
            Equal("GRAO hide", Text(peer.Receive()));
            Equal(GraLinkResult.Ok, link.Toggle("pad"));
            Equal("GRAO toggle pad", Text(peer.Receive()));
            Equal(GraLinkResult.Ok, link.Toggle(""));
            Equal("GRAO toggle", Text(peer.Receive()));
            Equal(GraLinkResult.Ok, link.Note("{\"hp\":3}"));
            Equal("GRAO note {\"hp\":3}", Text(peer.Receive()));
            Equal(GraLinkResult.Ok, link.NoteText("say \"hi\"\\\n\u2713"));
            Equal("GRAO note \"say \\\"hi\\\"\\\\\\n\u2713\"", Text(peer.Receive()));
            Equal(GraLinkResult.Ok, link.NoteText("a\0b"));
            Equal("GRAO note \"a\\u0000b\"", Text(peer.Receive()));
            Equal(GraLinkResult.Ok, link.Page("{\"type\":\"score\",\"value\":7}"));
            Equal("GRAO page {\"type\":\"score\",\"value\":7}", Text(peer.Receive()));
            Equal(GraLinkResult.Ok, link.Reload());
            Equal("GRAO reload", Text(peer.Receive()));
            Equal(GraLinkResult.Ok, link.State());
            Equal("GRAO state", Text(peer.Receive()));
            Equal(GraLinkResult.Ok, link.Window(true));
            Equal("GRAO window borderless", Text(peer.Receive()));
            Equal(GraLinkResult.Ok, link.Window(false));
            Equal("GRAO window framed", Text(peer.Receive()));
            Equal(GraLinkResult.Ok, link.Bye());
            Equal("GRAO bye", Text(peer.Receive()));
        }
    }

    static void TextThatIsNotUtf16IsRefused()
    {
        using (Peer peer = new Peer())
        using (GraLink link = GraLink.OpenPort(peer.Port, 0))
        {
            Equal(GraLinkResult.Invalid, link.Show("lone \ud800 surrogate"));
            Equal(GraLinkResult.Invalid, link.NoteText("lone \udc00"));
            Equal(GraLinkResult.Invalid, link.Send(null, "x"));
            Equal(GraLinkResult.NotJson, link.Note(null));
            Equal(GraLinkResult.BadWindowArgument, link.Send("window", null));
            Equal("<nothing>", Text(peer.Receive(100)));
        }
    }

    static void TheLargestNoteTextGoesOutWhole()
    {
        using (Peer peer = new Peer())
        using (GraLink link = GraLink.OpenPort(peer.Port, 0))
        {
            // "GRAO note " and two quotation marks leave 65,495 characters.
            string text = new string('t', GraLink.MaxDatagram - 12);
            Equal(GraLinkResult.Ok, link.NoteText(text));
            Equal(GraLink.MaxDatagram, peer.Receive().Length);
            Equal(GraLinkResult.TooLong, link.NoteText(text + "t"));
            // A two-byte character counts as two bytes.
            Equal(GraLinkResult.TooLong, link.NoteText(text.Substring(1) + "\u00e9"));
            Equal("<nothing>", Text(peer.Receive(100)));
        }
    }

    static void ErrorTextsAreThoseOfTheCLibrary()
    {
        Equal("the argument is not valid JSON", GraLink.ErrorText(GraLinkResult.NotJson));
        Equal("the argument holds a zero byte", GraLink.ErrorText(GraLinkResult.ZeroCharacter));
        Equal("the window argument must be \"borderless\" or \"framed\"",
              GraLink.ErrorText(GraLinkResult.BadWindowArgument));
        Equal("unknown command", GraLink.ErrorText(GraLinkResult.UnknownCommand));
        Equal("the datagram would be longer than 65507 bytes", GraLink.ErrorText(GraLinkResult.TooLong));
        Equal((int)GraLinkResult.BadWindowArgument, -10);
        Equal((int)GraLinkResult.NotJson, -4);
    }

    // ---- JSON ----

    static void JsonStringEscapesWhatJsonNeeds()
    {
        Equal("\"\"", GraLink.JsonString(""));
        Equal("\"\"", GraLink.JsonString(null));
        Equal("\"a\\\"b\\\\c\"", GraLink.JsonString("a\"b\\c"));
        Equal("\"\\b\\f\\n\\r\\t\"", GraLink.JsonString("\b\f\n\r\t"));
        Equal("\"\\u0001\\u001f\\u000b\\u0000\"", GraLink.JsonString("\u0001\u001f\u000b\0"));
        Equal("\"/ \u007f \u00e9 \ud83c\udfae\"", GraLink.JsonString("/ \u007f \u00e9 \ud83c\udfae"));
        StringBuilder all = new StringBuilder();
        for (int c = 1; c < 0x3000; c++) all.Append((char)c);
        Check(GraLink.IsJson(GraLink.JsonString(all.ToString())), "escaped text is JSON");
    }

    static void IsJsonAcceptsExactlyOneValue()
    {
        foreach (string good in new[] {
            "0", "-0", "1.5e-3", "12E+2", "true", "false", "null", "\"\"", "\"\\u00E9\\/\"", "[]", "{}",
            " [1, [2, {\"a\": null}]] ", "{\"a\":{\"b\":[true,false]}}", "\t\"x\"\r\n" })
            Check(GraLink.IsJson(good), "refused " + good);
        foreach (string bad in new[] {
            "", " ", "hello", "01", "1.", ".5", "-", "1e", "+1", "tru", "nulll", "\"", "\"\\x\"", "\"\\u12G4\"",
            "\"a\tb\"", "[1,]", "{\"a\"}", "{\"a\":1,}", "{1:2}", "[1] [2]", "0,\"type\":\"close\"", "'x'",
            "NaN", "\"a\" \"b\"", "{} x" })
            Check(!GraLink.IsJson(bad), "accepted " + bad);
        Check(GraLink.IsJson(new string('[', 256) + new string(']', 256)), "256 levels");
        Check(!GraLink.IsJson(new string('[', 257) + new string(']', 257)), "257 levels");
        Check(!GraLink.IsJson(new string('[', 100000)), "deep nesting");
        Check(!GraLink.IsJson(null), "null");
    }

    // ---- reports ----

    static GraLinkReport Parse(string datagram)
    {
        byte[] b = Bytes(datagram);
        return GraLink.ParseReport(b, b.Length);
    }

    static void ReportsAreParsedAsGraLinkHParsesThem()
    {
        GraLinkReport r = Parse("GRAO state passive");
        Equal(GraLinkReportKind.State, r.Kind);
        Equal(GraLinkMode.Passive, r.Mode);
        Equal(GraLinkMode.Hidden, Parse("GRAO state hidden").Mode);
        Equal(GraLinkMode.Active, Parse("GRAO state active").Mode);
        foreach (string other in new[] { "GRAO state Active", "GRAO state active ", "GRAO state", "GRAO modal maybe",
                                         "GRAO modal on ", "GRAO game ", "GRAO game  x", "GRAO hello" })
        {
            Equal(GraLinkReportKind.Other, Parse(other).Kind, other);
            Equal(GraLinkMode.Unknown, Parse(other).Mode, other);
        }
        Check(Parse("GRAO modal on").ModalOn && Parse("GRAO modal on").Kind == GraLinkReportKind.Modal, "modal on");
        string[] warnings = { "elevated", "fullscreen", "windowed" };
        GraLinkWarning[] warningKinds = { GraLinkWarning.Elevated, GraLinkWarning.Fullscreen, GraLinkWarning.Windowed };
        for (int i = 0; i < warnings.Length; i++)
        {
            r = Parse("GRAO warn " + warnings[i]);
            Equal(GraLinkReportKind.Warn, r.Kind, warnings[i]);
            Equal(warningKinds[i], r.Warning, warnings[i]);
        }
        foreach (string other in new[] { "GRAO warn", "GRAO warn ", "GRAO warn Elevated", "GRAO warn elevated " })
        {
            Equal(GraLinkReportKind.Other, Parse(other).Kind, other);
            Equal(GraLinkWarning.None, Parse(other).Warning, other);
        }
        Check(!Parse("GRAO modal off").ModalOn && Parse("GRAO modal off").Kind == GraLinkReportKind.Modal, "modal off");
        r = Parse("GRAO game say hello  world ");
        Equal(GraLinkReportKind.Game, r.Kind);
        Equal("say", r.Command);
        Equal("hello  world ", r.Argument);
        r = Parse("GRAO game jump");
        Equal("jump", r.Command);
        Equal("", r.Argument);
        string cmd39 = new string('c', 39), arg199 = new string('a', 199);
        Equal(GraLinkReportKind.Game, Parse("GRAO game " + cmd39 + " " + arg199).Kind);
        Equal(GraLinkReportKind.Other, Parse("GRAO game " + cmd39 + "c").Kind);
        Equal(GraLinkReportKind.Other, Parse("GRAO game x " + arg199 + "a").Kind);
        Equal("state hidden", Parse("GRAO state hidden\0tail").Text);
        Equal(GraLinkMode.Hidden, Parse("GRAO state hidden\0tail").Mode);
        Check(Parse("GRAO") == null && Parse("grao state hidden") == null && Parse("GRAOstate") == null, "no magic");
        Equal("", Parse("GRAO ").Text);
        Equal(GraLink.ReportMax, Parse("GRAO " + new string('x', GraLink.ReportMax)).Text.Length);
        Check(Parse("GRAO " + new string('x', GraLink.ReportMax + 1)) == null, "longer than any report");
    }

    static void PollReadsOnlyTheProgramsReportsAndNeverBlocks()
    {
        using (Peer peer = new Peer())
        using (Peer stranger = new Peer())
        using (GraLink link = GraLink.OpenPort(peer.Port, 0))
        {
            GraLinkReport report;
            Stopwatch clock = Stopwatch.StartNew();
            Check(!link.Poll(out report), "a report out of nothing");
            Check(clock.ElapsedMilliseconds < 500, "Poll waited " + clock.ElapsedMilliseconds + " ms");

            stranger.SendTo(link.LocalPort, "GRAO state active");
            peer.SendTo(link.LocalPort, "no magic");
            peer.SendTo(link.LocalPort, "GRAO " + new string('x', 600));
            peer.SendTo(link.LocalPort, new byte[0]);
            peer.SendTo(link.LocalPort, "GRAO modal on");
            peer.SendTo(link.LocalPort, "GRAO game jump 3");
            Thread.Sleep(200);
            Check(link.Poll(out report), "no report");
            Equal("modal on", report.Text);
            Check(link.Poll(out report), "no second report");
            Equal(GraLinkReportKind.Game, report.Kind);
            Equal("jump", report.Command);
            Equal("3", report.Argument);
            Check(!link.Poll(out report), "a third report");
        }
    }

    static void ASendToAClosedPortDoesNotBreakPolling()
    {
        int closedPort;
        using (Peer gone = new Peer()) closedPort = gone.Port;
        using (GraLink link = GraLink.OpenPort(closedPort, 0))
        {
            Equal(GraLinkResult.Ok, link.State());
            Thread.Sleep(100);
            GraLinkReport report;
            Check(!link.Poll(out report), "a report from a closed port");
            Equal(GraLinkResult.Ok, link.State());
        }
    }

    // ---- reading reports: waiting, the event, and the wait for the program ----

    static void DispatchReportsRaisesTheEventForEachReportInOrder()
    {
        using (Peer peer = new Peer())
        using (GraLink link = GraLink.OpenPort(peer.Port, 0))
        {
            var seen = new List<string>();
            link.ReportReceived += r => seen.Add(r.Kind + " " + r.Text);
            Equal(0, link.DispatchReports());
            peer.SendTo(link.LocalPort, "GRAO modal on");
            peer.SendTo(link.LocalPort, "no magic");
            peer.SendTo(link.LocalPort, "GRAO game jump 3");
            peer.SendTo(link.LocalPort, "GRAO state active");
            Check(link.Wait(2000), "nothing came");
            // the three datagrams may still be on their way one after another
            Stopwatch clock = Stopwatch.StartNew();
            while (seen.Count < 3 && clock.ElapsedMilliseconds < 5000)
            {
                link.DispatchReports();
                link.Wait(100);
            }
            Equal("Modal modal on|Game game jump 3|State state active", string.Join("|", seen));
            Equal(0, link.DispatchReports());
        }
    }

    static void NextReportWaitsForOneAndGivesUpAfterItsTime()
    {
        using (Peer peer = new Peer())
        using (GraLink link = GraLink.OpenPort(peer.Port, 0))
        {
            GraLinkReport report;
            Check(!link.NextReport(100, out report), "a report out of nothing");
            Check(!link.Wait(50), "a datagram out of nothing");
            peer.SendTo(link.LocalPort, "GRAO state passive");
            Check(link.NextReport(5000, out report), "no report");
            Equal(GraLinkMode.Passive, report.Mode);
        }
    }

    static void WaitReadyAsksAgainUntilTheProgramAnswers()
    {
        using (Peer peer = new Peer())
        using (GraLink link = GraLink.OpenPort(peer.Port, 0))
        {
            int asks = 0;
            Thread program = new Thread(() =>
            {
                for (;;)
                {
                    IPEndPoint from;
                    byte[] d = peer.Receive(out from, 5000);
                    if (d == null) return;
                    if (Text(d) != "GRAO state" || ++asks < 3) continue;
                    peer.SendTo(from.Port, "GRAO game jump");
                    peer.SendTo(from.Port, "GRAO state passive");
                    return;
                }
            });
            program.Start();
            GraLinkMode mode;
            bool ready = link.WaitReady(10000, out mode);
            program.Join();
            Check(ready, "not ready");
            Equal(GraLinkMode.Passive, mode);
            Equal(3, asks);
        }
    }

    static void WaitReadyGivesUpAfterTheTimeoutWhenNobodyAnswers()
    {
        using (Peer silent = new Peer())
        using (GraLink link = GraLink.OpenPort(silent.Port, 0))
        {
            GraLinkMode mode;
            Check(!link.WaitReady(600, out mode), "ready without an answer");
            Equal(GraLinkMode.Unknown, mode);
            int asked = 0;
            while (Text(silent.Receive(100)) == "GRAO state") asked++;
            Check(asked >= 2 && asked <= 4, "asked " + asked + " times in 600 ms");
        }
    }

    // ---- starting the program ----

    // One C string literal's text, with the escapes quote_cases.h uses.
    static string CString(string literal)
    {
        List<byte> o = new List<byte>();
        byte[] raw = Encoding.UTF8.GetBytes(literal);
        for (int i = 0; i < raw.Length; i++)
        {
            if (raw[i] != (byte)'\\')
            {
                o.Add(raw[i]);
                continue;
            }
            char c = (char)raw[++i];
            if (c == 'x')
            {
                int start = i + 1, end = start;
                while (end < raw.Length && Uri.IsHexDigit((char)raw[end])) end++;
                o.Add(Convert.ToByte(Encoding.ASCII.GetString(raw, start, end - start), 16));
                i = end - 1;
            }
            else if (c == 'n') o.Add(10);
            else if (c == 't') o.Add(9);
            else if (c == 'v') o.Add(11);
            else o.Add((byte)c);
        }
        return Encoding.UTF8.GetString(o.ToArray());
    }

    static List<KeyValuePair<string, string>> QuoteCases()
    {
        string header = File.ReadAllText(Path.Combine(Path.GetDirectoryName(casesPath), "quote_cases.h"), Encoding.UTF8);
        const string literal = "\"((?:[^\"\\\\]|\\\\.)*)\"";
        var cases = new List<KeyValuePair<string, string>>();
        foreach (System.Text.RegularExpressions.Match m in
                 System.Text.RegularExpressions.Regex.Matches(header, "\\{" + literal + ",\\s*" + literal + "\\}"))
            cases.Add(new KeyValuePair<string, string>(CString(m.Groups[1].Value), CString(m.Groups[2].Value)));
        return cases;
    }

    static void EachHardQuotingCaseGivesItsExactText()
    {
        var cases = QuoteCases();
        Check(cases.Count >= 20, "the table has " + cases.Count + " cases");
        foreach (var c in cases) Equal(c.Value, GraLink.QuoteArgument(c.Key), "case <" + c.Key + ">");
        Equal("\"\"", GraLink.QuoteArgument(null));
    }

    static void TheCommandLineHasEveryOptionInItsPlaceWithItsValueQuoted()
    {
        GraLinkLaunchOptions o = new GraLinkLaunchOptions();
        o.Program = "C:\\Games\\My Game\\overlay\\gra-overlay.exe";
        Equal("\"C:\\Games\\My Game\\overlay\\gra-overlay.exe\"", GraLink.CommandLine(o));
        o.Program = "gra-overlay.exe";
        o.Web = "C:\\Game\\web\\";
        o.Doc = "C:\\Users\\Ann\\Documents\\My Game";
        o.Port = 47700;
        o.Game = "Gravos \"Arena\" 2";
        o.GameClass = "Win32Window";
        o.Mode = "owned";
        o.Log = "";
        o.Data = "D:\\data\\";
        o.Show = true;
        Equal("\"gra-overlay.exe\" --web C:\\Game\\web\\ --doc \"C:\\Users\\Ann\\Documents\\My Game\"" +
              " --port 47700 --game \"Gravos \\\"Arena\\\" 2\" --game-class Win32Window" +
              " --mode owned --log \"\" --data D:\\data\\ --show", GraLink.CommandLine(o));
        foreach (string bad in new[] { null, "", "C:\\a\"b.exe" })
        {
            o.Program = bad;
            Equal(null, GraLink.CommandLine(o), "program <" + bad + ">");
        }
    }

    static void LaunchRefusesWhatWindowsCannotTakeBeforeStartingAnything()
    {
        Process process;
        int error;
        foreach (string game in new[] { "a\0b", "lone \ud800" })
        {
            GraLinkLaunchOptions o = new GraLinkLaunchOptions { Program = "gra-overlay.exe", Game = game, Runner = "/nonexistent/runner" };
            Equal(GraLinkResult.Invalid, GraLink.Launch(o, out process, out error), "game <" + game + ">");
            Equal(null, process);
        }
        GraLinkLaunchOptions unquotable = new GraLinkLaunchOptions { Program = "a\"b.exe" };
        Equal(GraLinkResult.Invalid, GraLink.Launch(unquotable, out process));
        GraLinkLaunchOptions tooLong = new GraLinkLaunchOptions
            { Program = "gra-overlay.exe", Game = new string('x', 32767), Runner = "/nonexistent/runner" };
        Equal(GraLinkResult.TooLong, GraLink.Launch(tooLong, out process));
        GraLinkLaunchOptions missing = new GraLinkLaunchOptions { Program = "gra-overlay.exe", Runner = "/nonexistent/runner" };
        Equal(GraLinkResult.LaunchFailed, GraLink.Launch(missing, out process, out error));
        Equal(2, error);
        Equal("the program could not be started", GraLink.ErrorText(GraLinkResult.LaunchFailed));
        Equal(-11, (int)GraLinkResult.LaunchFailed);
    }

    // A runner gets the program and every option as words of their own, whatever
    // they hold: a shell script stands in for wine and writes down its words.
    static void ARunnerGetsEveryHardCaseBackAsOneWord()
    {
        string folder = Path.Combine(Path.GetTempPath(), "gralink-runner-" + Process.GetCurrentProcess().Id);
        Directory.CreateDirectory(folder);
        try
        {
            string script = Path.Combine(folder, "runner.sh"), words = Path.Combine(folder, "words");
            File.WriteAllText(script, "#!/bin/sh\nprintf '%s\\0' \"$@\" > \"$0.part\" && mv \"$0.part\" '" + words + "'\n");
            var cases = QuoteCases();
            for (int first = 0; first < cases.Count; first += 6)
            {
                var values = new List<string>();
                for (int i = first; i < first + 6; i++) values.Add(i < cases.Count ? cases[i].Key : "filler");
                GraLinkLaunchOptions o = new GraLinkLaunchOptions
                {
                    // the runner is /bin/sh, so the "program" is the script it runs
                    Program = script, Web = values[0], Doc = values[1], Game = values[2],
                    GameClass = values[3], Log = values[4], Data = values[5], Port = 47700, Runner = "/bin/sh"
                };
                Process process;
                int error;
                File.Delete(words);
                Equal(GraLinkResult.Ok, GraLink.Launch(o, out process, out error), "error " + error);
                Check(process.WaitForExit(20000), "the runner did not end");
                process.Dispose();
                string[] got = File.ReadAllText(words, Encoding.UTF8).Split('\0');
                var expected = new List<string> { "--web", values[0], "--doc", values[1], "--port", "47700", "--game", values[2],
                                                  "--game-class", values[3], "--log", values[4], "--data", values[5], "" };
                Equal(string.Join("|", expected), string.Join("|", got));
            }
        }
        finally
        {
            Directory.Delete(folder, true);
        }
    }

    static int Main(string[] args)
    {
        if (args.Length != 1)
        {
            Console.Error.WriteLine("usage: mono gralink_tests.exe LINK_CASES_FILE");
            return 100;
        }
        casesPath = args[0];
        var tests = new List<KeyValuePair<string, Action>>
        {
            new KeyValuePair<string, Action>("EachLinkCaseIsSentExactlyOrRefusedWithItsResult", EachLinkCaseIsSentExactlyOrRefusedWithItsResult),
            new KeyValuePair<string, Action>("OpenPortBindsLoopbackAndAnEphemeralPort", OpenPortBindsLoopbackAndAnEphemeralPort),
            new KeyValuePair<string, Action>("OpenPrefersTheGamePortAndFallsBackWhenItIsTaken", OpenPrefersTheGamePortAndFallsBackWhenItIsTaken),
            new KeyValuePair<string, Action>("OpenWithoutAPortAimsAtTheDefaultPort", OpenWithoutAPortAimsAtTheDefaultPort),
            new KeyValuePair<string, Action>("AClosedLinkRefusesEverything", AClosedLinkRefusesEverything),
            new KeyValuePair<string, Action>("EachCommandMethodSendsItsBytes", EachCommandMethodSendsItsBytes),
            new KeyValuePair<string, Action>("TextThatIsNotUtf16IsRefused", TextThatIsNotUtf16IsRefused),
            new KeyValuePair<string, Action>("TheLargestNoteTextGoesOutWhole", TheLargestNoteTextGoesOutWhole),
            new KeyValuePair<string, Action>("ErrorTextsAreThoseOfTheCLibrary", ErrorTextsAreThoseOfTheCLibrary),
            new KeyValuePair<string, Action>("JsonStringEscapesWhatJsonNeeds", JsonStringEscapesWhatJsonNeeds),
            new KeyValuePair<string, Action>("IsJsonAcceptsExactlyOneValue", IsJsonAcceptsExactlyOneValue),
            new KeyValuePair<string, Action>("ReportsAreParsedAsGraLinkHParsesThem", ReportsAreParsedAsGraLinkHParsesThem),
            new KeyValuePair<string, Action>("PollReadsOnlyTheProgramsReportsAndNeverBlocks", PollReadsOnlyTheProgramsReportsAndNeverBlocks),
            new KeyValuePair<string, Action>("ASendToAClosedPortDoesNotBreakPolling", ASendToAClosedPortDoesNotBreakPolling),
            new KeyValuePair<string, Action>("DispatchReportsRaisesTheEventForEachReportInOrder", DispatchReportsRaisesTheEventForEachReportInOrder),
            new KeyValuePair<string, Action>("NextReportWaitsForOneAndGivesUpAfterItsTime", NextReportWaitsForOneAndGivesUpAfterItsTime),
            new KeyValuePair<string, Action>("WaitReadyAsksAgainUntilTheProgramAnswers", WaitReadyAsksAgainUntilTheProgramAnswers),
            new KeyValuePair<string, Action>("WaitReadyGivesUpAfterTheTimeoutWhenNobodyAnswers", WaitReadyGivesUpAfterTheTimeoutWhenNobodyAnswers),
            new KeyValuePair<string, Action>("EachHardQuotingCaseGivesItsExactText", EachHardQuotingCaseGivesItsExactText),
            new KeyValuePair<string, Action>("TheCommandLineHasEveryOptionInItsPlaceWithItsValueQuoted", TheCommandLineHasEveryOptionInItsPlaceWithItsValueQuoted),
            new KeyValuePair<string, Action>("LaunchRefusesWhatWindowsCannotTakeBeforeStartingAnything", LaunchRefusesWhatWindowsCannotTakeBeforeStartingAnything),
            new KeyValuePair<string, Action>("ARunnerGetsEveryHardCaseBackAsOneWord", ARunnerGetsEveryHardCaseBackAsOneWord),
        };
        int failed = 0;
        foreach (var t in tests)
        {
            try
            {
                t.Value();
                Console.WriteLine("ok " + t.Key);
            }
            catch (Exception e)
            {
                failed++;
                Console.WriteLine("FAILED " + t.Key + ": " + (e is CheckFailed ? e.Message : e.ToString()));
            }
        }
        Console.WriteLine(failed == 0 ? "all " + tests.Count + " tests passed" : failed + " of " + tests.Count + " tests failed");
        return Math.Min(failed, 100);
    }
}
