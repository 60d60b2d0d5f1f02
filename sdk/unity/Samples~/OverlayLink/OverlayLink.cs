// OverlayLink: a Unity component that drives the gra-overlay program over the
// game link. It opens the link when enabled, reads the program's reports once
// a frame through the ReportReceived event, pauses the game while the overlay
// is active, and toggles the overlay with F1. Put it on any object of the
// first scene; the program itself is started by the game's launcher or with
// GraLink.Launch (docs/game-protocol.md, "C#").

using GraOverlay;
using UnityEngine;

public class OverlayLink : MonoBehaviour
{
    [Tooltip("The program's UDP port: 0 for its default, 47632")]
    public int overlayPort = 0;

    GraLink link;

    void OnEnable()
    {
        link = GraLink.Open(overlayPort);
        if (!link.Preferred) Debug.LogWarning("port 47630 is taken: overlay reports may go elsewhere");
        link.ReportReceived += OnReport;
        link.State(); // tells the program where the game is
    }

    void Update()
    {
        link.DispatchReports();
        if (Input.GetKeyDown(KeyCode.F1)) link.Toggle("Shop");
    }

    void OnReport(GraLinkReport report)
    {
        if (report.Kind == GraLinkReportKind.State)
            Time.timeScale = report.Mode == GraLinkMode.Active ? 0f : 1f;
        else if (report.Kind == GraLinkReportKind.Game)
            Debug.Log("the page says " + report.Command + " " + report.Argument);
    }

    public void Announce(string text)
    {
        GraLinkResult r = link.NoteText(text);
        if (r != GraLinkResult.Ok) Debug.LogWarning(GraLink.ErrorText(r));
    }

    void OnDisable()
    {
        link.ReportReceived -= OnReport;
        link.Dispose();
        link = null;
    }
}
