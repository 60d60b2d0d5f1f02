"""The web view end to end: how the program finds the runtime, creates the
environment and the controller, configures the web view and hosts the page,
as the stand-in WebView2 runtime records it; and how it runs on without one."""

import os
import re
import unittest

from harness import (BUILD_DIR, GameLink, Overlay, WM_CLOSE, free_udp_port, unique, wait_until,
                     wine_path)
from standin_game import StandinGame
from standin_runtime import StandinPage

PAGE = "https://gra-overlay.invalid/index.html"
SETTINGS = [
    "settings.put_AreDefaultContextMenusEnabled 0",
    "settings.put_IsStatusBarEnabled 0",
    "settings.put_IsZoomControlEnabled 0",
    "settings.put_AreDevToolsEnabled 1",
]


def web_view_ready(overlay):
    if not overlay.wait_for_log(r"^WebView2 ready, page ", 20):
        raise AssertionError("no web view: %r %r" % (overlay.messages(), overlay.journal()))
    return overlay.journal()


class Creation(unittest.TestCase):
    def test_the_ready_line_and_the_browser_process(self):
        web = os.path.join(os.path.dirname(__file__), "..", "..", "web")
        with Overlay("web-ready", extra_args=["--web", wine_path(web)]) as overlay:
            web_view_ready(overlay)
            messages = overlay.messages()
            self.assertIn("WebView2 browser process pid 77777", messages)
            self.assertEqual(messages[messages.index("WebView2 browser process pid 77777") + 1],
                             "WebView2 ready, page %s from %s" % (PAGE, wine_path(web)))

    def test_the_creation_sequence_as_the_runtime_sees_it(self):
        with Overlay("web-sequence") as overlay:
            journal = web_view_ready(overlay)
            self.assertEqual(journal[:7], [
                "create checkRunningInstance=1 runtimeType=1 userDataFolder=%s" % wine_path(overlay.data_dir),
                "options AdditionalBrowserArguments=--autoplay-policy=no-user-gesture-required",
                "options TargetCompatibleBrowserVersion=154.0.4258.31",
                "options Language=",
                "options AllowSingleSignOnUsingOSPrimaryAccount=0",
                "options qi-other no",
                "page.listen %d" % overlay.page_port,
            ])
            # the environment is used for the controller only and not kept
            self.assertIn("destroy environment", journal)
            # the callbacks hold no reference of the program's once handed over
            self.assertIn("release environment-handler 0", journal)
            self.assertIn("release controller-handler 0", journal)
            body = journal[journal.index("invoke controller-handler 0x00000000 controller") + 1:]
            web_folder = "Z:" + os.path.join(BUILD_DIR, "bin").replace("/", "\\") + "\\web"
            expected = [
                "controller.get_CoreWebView2",
                "webview.get_BrowserProcessId 77777",
                "qi controller ICoreWebView2Controller2 ok",
                "controller2.put_DefaultBackgroundColor 255 11 11 24",
                "webview.get_Settings",
            ] + SETTINGS + [
                "qi webview ICoreWebView2_3 ok",
                "webview3.SetVirtualHostNameToFolderMapping gra-overlay.invalid %s 1" % web_folder,
                "webview.add_WebMessageReceived token=given",  # a local token, discarded
                "controller.put_IsVisible 0",
                "webview.Navigate " + PAGE,
            ]
            self.assertEqual([line for line in body if not line.startswith("release ")][:len(expected)],
                             expected)

    def test_the_default_user_data_folder_is_under_local_app_data(self):
        overlay = Overlay("web-default-data")
        overlay.args = [a for a in overlay.args]
        i = overlay.args.index("--data")
        del overlay.args[i:i + 2]
        with overlay:
            line = overlay.wait_for_journal(r"^create ", 20)
            self.assertRegex(line, r"userDataFolder=C:\\users\\[^\\]+\\AppData\\Local\\GRA\\overlay$")

    def test_webview2_user_data_folder_overrides_the_folder(self):
        with Overlay("web-data-env", env={"WEBVIEW2_USER_DATA_FOLDER": "C:\\override"}) as overlay:
            self.assertTrue(overlay.wait_for_journal(r"^create .* userDataFolder=C:\\override$", 20),
                            overlay.journal())

    def test_additional_browser_arguments_from_the_environment_follow_the_programs_own(self):
        extra = "--remote-debugging-port=9222 --lang=de"
        with Overlay("web-arguments-env", env={"WEBVIEW2_ADDITIONAL_BROWSER_ARGUMENTS": extra}) as overlay:
            journal = web_view_ready(overlay)
            self.assertIn("options AdditionalBrowserArguments=--autoplay-policy=no-user-gesture-required " + extra,
                          journal)

    def test_show_at_start_makes_the_web_view_visible_when_it_arrives(self):
        with Overlay("web-show-at-start", show=True) as overlay:
            journal = web_view_ready(overlay)
            self.assertIn("controller.put_IsVisible 1", journal)
            self.assertNotIn("controller.put_IsVisible 0", journal)

    def test_wm_size_sets_the_bounds(self):
        with Overlay("web-wm-size") as overlay:
            web_view_ready(overlay)
            overlay.post_message(0x0005, 0, (300 << 16) | 400)
            self.assertTrue(overlay.wait_for_journal(r"^controller\.put_Bounds 0 0 400 300$", 10))

    def test_bounds_follow_the_game_window(self):
        title = unique("web bounds game")
        game = StandinGame()
        self.addCleanup(game.stop)
        game.start(BUILD_DIR, title, "WebBoundsGame", free_udp_port(), ["--w", "500", "--h", "400"])
        client = game.info()["client"]
        with Overlay("web-bounds", game=title, game_class="WebBoundsGame", show=True) as overlay:
            web_view_ready(overlay)
            self.assertTrue(overlay.wait_for_journal(
                r"^controller\.put_Bounds 0 0 %d %d$" % (client[2], client[3]), 10))
            game.set_client(600, 330)
            # active mode: the tick fits every 100 ms (and the resize brings WM_SIZE)
            self.assertTrue(overlay.wait_for_journal(r"^controller\.put_Bounds 0 0 600 330$", 10))


class PageMessages(unittest.TestCase):
    def test_a_page_message_reaches_the_dispatcher(self):
        with Overlay("web-page-message") as overlay:
            web_view_ready(overlay)
            page = StandinPage(overlay.page_port)
            self.addCleanup(page.close)
            self.assertEqual(page.post('{"type":"log","text":"hello from the page \\u00e9"}'), "done")
            self.assertTrue(overlay.wait_for_log(r"^page: hello from the page \u00e9$", 10))

    def test_a_string_message_is_ignored(self):
        with Overlay("web-string-message") as overlay:
            web_view_ready(overlay)
            page = StandinPage(overlay.page_port)
            self.addCleanup(page.close)
            before = overlay.messages()
            self.assertEqual(page.post('"{\\"type\\":\\"log\\",\\"text\\":\\"x\\"}"'), "done")
            self.assertEqual(page.post_fail(), "done")
            self.assertEqual(page.post('{"type":"log","text":"after"}'), "done")
            self.assertTrue(overlay.wait_for_log(r"^page: after$", 10))
            self.assertEqual(overlay.messages(), before + ["page: after"])

    def test_page_messages_are_counted_also_when_their_text_cannot_be_taken(self):
        # One real 30-second rates period.
        with Overlay("web-count") as overlay:
            web_view_ready(overlay)
            page = StandinPage(overlay.page_port)
            self.addCleanup(page.close)
            self.assertEqual(page.post('{"type":"nothing"}'), "done")
            self.assertEqual(page.post_fail(), "done")
            self.assertEqual(page.post('{"type":"log","text":"x"}'), "done")
            report = overlay.wait_for_log(r"^rates \d+s \(avg/s, busiest 1 s\): page->host ([\d.]+)/(\d+) ", 45)
            self.assertTrue(report, overlay.messages())
            self.assertEqual(report.group(2), "3")


class WithoutRuntime(unittest.TestCase):
    def test_an_empty_runtime_folder_fails_at_once_and_the_program_runs_on(self):
        with Overlay("web-empty-runtime", runtime="empty") as overlay:
            self.assertTrue(overlay.wait_for_log(r"^CreateCoreWebView2EnvironmentWithOptions: 0x80070002$", 20))
            with GameLink(overlay.port) as link:
                link.send("GRAO state")
                self.assertEqual(link.receive(10), b"GRAO state hidden")

    def test_no_runtime_installed_under_wine(self):
        with Overlay("web-no-runtime", runtime=None) as overlay:
            self.assertTrue(overlay.wait_for_log(r"^CreateCoreWebView2EnvironmentWithOptions: 0x80070002$", 20))
            self.assertTrue(overlay.running())

    def test_posts_to_the_page_without_a_web_view_neither_post_nor_count(self):
        # One real 30-second rates period: what was counted shows there.
        with Overlay("web-no-post", runtime="empty") as overlay:
            self.assertTrue(overlay.wait_for_log(r"^CreateCoreWebView2EnvironmentWithOptions: ", 20))
            with GameLink(overlay.port) as link:
                link.send('GRAO page {"a":1}')
                link.send("GRAO show pad")
                self.assertEqual(link.receive(10), b"GRAO state active")
                report = overlay.wait_for_log(r"^rates ", 45)
            self.assertTrue(report, overlay.messages())
            line = report.string
            self.assertIn(" host->page 0.0/0 ", line)
            self.assertIn(" game->host 0.1/2 ", line)
            self.assertIn(" host->game 0.0/1 ", line)


class RuntimeFailures(unittest.TestCase):
    def run_failing(self, name, mode, expected):
        with Overlay(name, env={"GRA_STANDIN_FAIL": mode}) as overlay:
            self.assertTrue(overlay.wait_for_log("^" + re.escape(expected) + "$", 20), overlay.messages())
            self.assertFalse(any(m.startswith("WebView2 ready") for m in overlay.messages()))
            self.assertTrue(overlay.running())

    def test_the_creation_call_fails(self):
        self.run_failing("web-fail-create", "create", "CreateCoreWebView2EnvironmentWithOptions: 0x8000ffff")

    def test_the_environment_callback_reports_failure(self):
        self.run_failing("web-fail-env", "environment",
                         "WebView2 environment failed: 0x80004005 (is the runtime installed?)")

    def test_the_environment_callback_brings_no_environment(self):
        self.run_failing("web-fail-env-null", "environment-null",
                         "WebView2 environment failed: 0x00000000 (is the runtime installed?)")

    def test_the_controller_callback_reports_failure(self):
        self.run_failing("web-fail-controller", "controller", "WebView2 controller failed: 0x8007000e")

    def test_without_the_newer_interfaces_the_page_is_still_navigated(self):
        env = {"GRA_STANDIN_DENY": "ICoreWebView2_3,ICoreWebView2Controller2"}
        with Overlay("web-deny", env=env) as overlay:
            journal = web_view_ready(overlay)
            self.assertIn("webview.Navigate " + PAGE, journal)
            self.assertFalse(any(l.startswith("webview3.") for l in journal))
            self.assertFalse(any(l.startswith("controller2.") for l in journal))

    def test_without_a_browser_process_id_nothing_is_logged(self):
        with Overlay("web-no-pid", env={"GRA_STANDIN_NO_PID": "1"}) as overlay:
            web_view_ready(overlay)
            self.assertFalse(any(m.startswith("WebView2 browser process") for m in overlay.messages()))

    def test_the_controller_is_closed_at_exit(self):
        with Overlay("web-close") as overlay:
            web_view_ready(overlay)
            overlay.post_message(WM_CLOSE)
            self.assertEqual(overlay.wait_exit(20), 0)
            self.assertTrue(wait_until(lambda: "controller.Close" in overlay.journal(), 5))


if __name__ == "__main__":
    unittest.main()
