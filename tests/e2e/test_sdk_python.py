"""sdk/gra_link.py against the real program under Wine: the module is used
right here, in the test's own Linux Python, and its datagrams on 127.0.0.1
reach the program under Wine as a game's would (Wine's sockets are Linux
sockets). Its effects are read from the program's log, the stand-in
runtime's journal and the page's side of the stand-in runtime; launch()
starts the program through Wine for a game whose title needs quoting."""

import os
import sys
import unittest

import test_sdk
from harness import BUILD_DIR, PROGRAM, Overlay, free_udp_port, unique, wait_until, wine_path
from standin_game import StandinGame

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "sdk"))
import gra_link  # noqa: E402


class PythonLink(test_sdk.KitTest):
    def setUp(self):
        pass  # needs nothing built beyond the program

    def link(self):
        link = gra_link.open_port(self.overlay.port, 0)
        self.addCleanup(link.close)
        return link

    def state_of(self, link):
        """The mode the program reports now: the reports its mode changes sent
        this link earlier are read first."""
        while link.poll() is not None:
            pass
        report = link.wait_ready(10000)
        self.assertIsNotNone(report, "no state report")
        return report.mode_name

    def test_state_show_note_page_and_hide(self):
        self.start("py-commands")
        link = self.link()
        self.assertEqual(self.state_of(link), "hidden")
        self.make_page_ready()

        before = self.mark()
        link.show('Wave 3: "go" \u00c4')
        self.expect_log(r"^mode active$", before)
        self.expect_posted('{"type":"show","pad":"Wave 3: \\"go\\" \u00c4"}')
        self.assertEqual(self.state_of(link), "active")

        link.note_text('say "hi"\\')
        self.expect_posted('{"type":"note","note":"say \\"hi\\"\\\\"}')
        link.note('{"kills": 3}')
        self.expect_posted('{"type":"note","note":{"kills": 3}}')

        link.page('{"type":"score","value":7}')
        self.assertTrue(self.overlay.wait_for_journal(
            r'^webview\.PostWebMessageAsJson \{"type":"score","value":7\}$', 10), self.overlay.journal())

        link.hide()
        self.expect_posted('{"type":"close"}')
        before = self.mark()
        self.assertEqual(self.page.post('{"type":"hide"}'), "done")
        self.expect_log(r"^mode hidden$", before)
        self.assertEqual(self.state_of(link), "hidden")

        link.reload()
        self.assertTrue(self.overlay.wait_for_journal(r"^webview\.Reload$", 10), self.overlay.journal())

    def test_what_the_program_would_misread_is_refused_and_never_arrives(self):
        self.start("py-refused")
        self.make_page_ready()
        link = self.link()
        for call, argument, code in ((link.note, '0,"type":"close"', gra_link.E_JSON),
                                     (link.note, "hello", gra_link.E_JSON),
                                     (link.page, '{"type":', gra_link.E_JSON),
                                     (lambda a: link.send("window", a), "Borderless", gra_link.E_WINDOW),
                                     (lambda a: link.send("jump", a), None, gra_link.E_COMMAND)):
            with self.assertRaises(gra_link.LinkError) as caught:
                call(argument)
            self.assertEqual(caught.exception.code, code)
        # the program never saw them: still hidden, no close asked of the page
        self.assertEqual(self.state_of(link), "hidden")
        self.assertNotIn('{"type":"close"}', self.page.posted())
        self.assertFalse([m for m in self.overlay.messages() if m.startswith("window:")])

    def test_poll_reads_the_pages_modal_and_game_reports(self):
        self.start("py-reports")
        link = self.link()
        self.assertEqual(self.state_of(link), "hidden")  # makes the link the reply address
        for message in ('{"type":"modal","on":true}', '{"type":"game","cmd":"jump","arg":"3 high"}',
                        '{"type":"modal","on":false}'):
            self.assertEqual(self.page.post(message), "done")
        reports = []
        self.assertTrue(wait_until(lambda: reports.append(link.poll()) or len([r for r in reports if r]) == 3, 10))
        reports = [r for r in reports if r]
        self.assertEqual([(r.kind, r.modal_on) for r in (reports[0], reports[2])],
                         [(gra_link.REPORT_MODAL, True), (gra_link.REPORT_MODAL, False)])
        self.assertEqual((reports[1].kind, reports[1].cmd, reports[1].arg), (gra_link.REPORT_GAME, "jump", "3 high"))

    def test_bye_ends_the_program(self):
        self.start("py-bye")
        link = self.link()
        link.bye()
        self.assertEqual(self.overlay.wait_exit(20), 0)
        self.assertEqual(self.overlay.messages()[-1], "exit ('bye' from UDP port %d)" % link.local_port)


class PythonLaunch(unittest.TestCase):
    def test_launch_finds_a_game_whose_title_needs_quoting_and_wait_ready_sees_it_listen(self):
        title = unique('Py "Launched" \\"Game\\" of') + " 2\\"
        cls = "Py Class \\"
        game = StandinGame().start(BUILD_DIR, title, cls, free_udp_port())
        self.addCleanup(game.stop)
        overlay = Overlay(unique("py-launch"))  # its folders and port; launch() starts the program
        process = gra_link.launch(PROGRAM, port=overlay.port, game=title, game_class=cls,
                                  log=wine_path(overlay.log_path), doc=wine_path(overlay.doc_dir),
                                  data=wine_path(overlay.data_dir))
        self.addCleanup(lambda: process.poll() is None and (process.kill(), process.wait(10)))
        with gra_link.open_port(overlay.port, 0) as link:
            report = link.wait_ready(60000)
            self.assertIsNotNone(report, overlay.messages())
            self.assertEqual(report.mode, gra_link.MODE_HIDDEN)
            self.assertTrue(overlay.wait_for_log(r"^game window [0-9A-Fa-f]+ found \(child\), process ", 20),
                            overlay.messages())
            link.bye()
        self.assertEqual(process.wait(60), 0)
        self.assertEqual(overlay.messages()[-1], "exit ('bye' from UDP port %d)" % link.local_port)


if __name__ == "__main__":
    unittest.main()
