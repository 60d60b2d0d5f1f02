// gralink-send: drives the gra-overlay program over its game link with
// sdk/GraLink.cs, as gra-send does with gra_link.h; the end-to-end tests run
// it with mono on Linux against the real program under Wine.
//
//     mono gralink-send.exe [--port N] [--wait MS] [--count N] COMMAND [TEXT]
//     mono gralink-send.exe launch PROGRAM PORT TITLE CLASS LOG DOC DATA
//
// COMMAND is show, hide, toggle, note, note-text, page, reload, state,
// window, bye or listen. "state" prints the state report; "listen" asks for
// the state, then prints every report until COUNT have come, read with
// DispatchReports and its event. "launch" starts the program through wine
// with GraLink.Launch and waits for it with WaitReady. The text is
// sent as it stands, so refusals show. Exit status: 0 done, 1 no state
// report in time, 2 bad command line, 3 refused.

using System;
using System.Diagnostics;
using System.Threading;
using GraOverlay;

static class GraLinkSend
{
    const int Done = 0, NoAnswer = 1, Usage = 2, Refused = 3;

    static int Fail(int status, string why)
    {
        Console.Error.WriteLine("gralink-send: " + why);
        return status;
    }

    // Polls without blocking, a few milliseconds apart, as a game's frames would.
    static GraLinkReport NextReport(GraLink link, int waitMs)
    {
        DateTime end = DateTime.UtcNow.AddMilliseconds(waitMs);
        GraLinkReport report;
        while (!link.Poll(out report))
        {
            if (DateTime.UtcNow >= end) return null;
            Thread.Sleep(5);
        }
        return report;
    }

    static int Run(GraLink link, string command, string text, int waitMs, int count)
    {
        GraLinkResult r;
        switch (command)
        {
            case "show": r = link.Show(text); break;
            case "hide": r = link.Hide(); break;
            case "toggle": r = link.Toggle(text); break;
            case "note": r = link.Note(text); break;
            case "note-text": r = link.NoteText(text); break;
            case "page": r = link.Page(text); break;
            case "reload": r = link.Reload(); break;
            case "state":
            case "listen": r = link.State(); break;
            case "bye": r = link.Bye(); break;
            default: r = link.Send(command, text); break; // window, and unknown words
        }
        if (r != GraLinkResult.Ok) return Fail(Refused, GraLink.ErrorText(r));
        if (command == "state")
        {
            for (GraLinkReport report; (report = NextReport(link, waitMs)) != null;)
            {
                if (report.Kind != GraLinkReportKind.State) continue;
                Console.WriteLine(report.Text);
                return Done;
            }
            return Fail(NoAnswer, "no state report within " + waitMs + " ms");
        }
        if (command == "listen") return Listen(link, waitMs, count);
        return Done;
    }

    // Reads the reports as a Unity component would: DispatchReports once a
    // "frame", the event printing each.
    static int Listen(GraLink link, int waitMs, int count)
    {
        int seen = 0;
        link.ReportReceived += report =>
        {
            if (seen++ >= count) return;
            Console.WriteLine(report.Kind == GraLinkReportKind.Game
                ? "game '" + report.Command + "' '" + report.Argument + "'" : report.Text);
        };
        DateTime end = DateTime.UtcNow.AddMilliseconds(waitMs);
        while (seen < count)
        {
            if (link.DispatchReports() > 0) end = DateTime.UtcNow.AddMilliseconds(waitMs);
            else if (DateTime.UtcNow >= end) return Fail(NoAnswer, "no report within " + waitMs + " ms");
            else Thread.Sleep(5);
        }
        return Done;
    }

    // launch PROGRAM PORT TITLE CLASS LOG DOC DATA: starts the program through
    // wine with GraLink.Launch, waits with WaitReady until it answers, then
    // waits for it to end. Prints "ready <mode>" (or "not ready"), then
    // "exit <code>" (or "still running", and ends it).
    static int LaunchAndWait(string[] a)
    {
        GraLinkLaunchOptions o = new GraLinkLaunchOptions
        {
            Program = a[0], Port = int.Parse(a[1]), Game = a[2], GameClass = a[3], Log = a[4], Doc = a[5], Data = a[6],
            Runner = "wine"
        };
        Process process;
        int error;
        GraLinkResult r = GraLink.Launch(o, out process, out error);
        if (r != GraLinkResult.Ok) return Fail(Refused, GraLink.ErrorText(r) + " (" + error + ")");
        using (process)
        {
            GraLinkMode mode;
            bool ready;
            using (GraLink link = GraLink.OpenPort(o.Port, 0))
                ready = link.WaitReady(60000, out mode);
            Console.WriteLine(ready ? "ready " + GraLink.ModeName(mode) : "not ready");
            Console.Out.Flush();
            if (!process.WaitForExit(60000))
            {
                Console.WriteLine("still running");
                process.Kill();
                return NoAnswer;
            }
            Console.WriteLine("exit " + process.ExitCode);
            return ready ? Done : NoAnswer;
        }
    }

    static int Main(string[] args)
    {
        int port = 0, waitMs = 2000, count = 1, i = 0;
        for (; i + 1 < args.Length && args[i].StartsWith("--"); i += 2)
        {
            int value;
            if (!int.TryParse(args[i + 1], out value)) return Fail(Usage, "bad value " + args[i + 1]);
            if (args[i] == "--port") port = value;
            else if (args[i] == "--wait") waitMs = value;
            else if (args[i] == "--count") count = value;
            else return Fail(Usage, "bad option " + args[i]);
        }
        if (i >= args.Length) return Fail(Usage, "no command given");
        if (args[i] == "launch")
        {
            if (args.Length - i - 1 != 7) return Fail(Usage, "launch PROGRAM PORT TITLE CLASS LOG DOC DATA");
            string[] launchWords = new string[7];
            Array.Copy(args, i + 1, launchWords, 0, 7);
            int status = LaunchAndWait(launchWords);
            Console.Out.Flush();
            return status;
        }
        string command = args[i];
        string text = i + 1 < args.Length ? string.Join(" ", args, i + 1, args.Length - i - 1) : null;
        using (GraLink link = GraLink.OpenPort(port, 0))
        {
            Console.Out.Flush();
            int status = Run(link, command, text, waitMs, count);
            Console.Out.Flush();
            return status;
        }
    }
}
