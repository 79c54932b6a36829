"""Wrong usage, help, the container, the domain, the log and the process as a whole."""

import json
import os
import signal
import subprocess
import threading
import time

from support import (
    EXECUTABLE,
    NO_SUCH_ITEM,
    PATIENCE,
    ROOT,
    ProviderTest,
    Result,
    folder_item,
    main,
    progress,
)


class WrongUsage(ProviderTest):
    def test_no_group(self):
        self.check_wrong_usage()

    def test_unknown_group(self):
        self.check_wrong_usage("nonsense")

    def test_no_command(self):
        self.check_wrong_usage("provider")
        self.check_wrong_usage("provider", "--container", self.container)

    def test_unknown_command(self):
        self.check_wrong_usage("provider", "nonsense")

    def test_unknown_option(self):
        self.check_wrong_usage("provider", "--nonsense", "info")
        self.check_wrong_usage("provider", "info", "--nonsense")

    def test_missing_value_of_an_option(self):
        self.check_wrong_usage("provider", "--container")
        self.check_wrong_usage("provider", "create", "--name")

    def test_unknown_log_format(self):
        self.check_wrong_usage("provider", "--log-format", "xml", "info")

    def test_missing_identifier(self):
        for command in ("item", "enumerate", "fetch", "modify", "delete"):
            self.check_wrong_usage("provider", command)

    def test_too_many_identifiers(self):
        for command in ("item", "enumerate", "anchor", "fetch", "modify", "delete"):
            self.check_wrong_usage("provider", command, "i:A", "i:B")
        self.check_wrong_usage("provider", "info", "i:A")

    def test_changes_without_an_anchor_or_identifier(self):
        self.check_wrong_usage("provider", "changes", ROOT)
        self.check_wrong_usage("provider", "changes", "--anchor", "a")

    def test_create_without_a_name(self):
        self.check_wrong_usage("provider", "create")
        self.check_wrong_usage("provider", "create", "--folder")

    def test_create_with_folder_and_type(self):
        self.check_wrong_usage(
            "provider", "create", "--name", "a", "--folder", "--type", "public.folder"
        )

    def test_fields_that_are_no_number(self):
        self.check_wrong_usage("provider", "modify", "i:U", "--fields", "name")
        self.check_wrong_usage("provider", "modify", "i:U", "--fields", "1.5")

    def test_thumbnails_with_bad_numbers(self):
        self.check_wrong_usage("provider", "thumbnails", "--cancel-after", "one", "i:U")
        self.check_wrong_usage("provider", "thumbnails", "--size", "large", "i:U")
        for size in ("64", "64x", "x64", "64x64x64", "-1x1", "nanxinf"):
            self.check_wrong_usage("provider", "thumbnails", "--size", size, "i:U")

    def test_wrong_usage_reaches_no_host(self):
        host = self.host({"ok": True})
        self.check_wrong_usage(
            "provider", "--container", self.container, "delete", "i:U", "--nonsense"
        )
        self.assertEqual(host.requests, [])


class Help(ProviderTest):
    def test_every_command_has_help(self):
        commands = "info item enumerate anchor changes fetch create modify delete thumbnails"
        for command in [[], ["provider"], *(["provider", name] for name in commands.split())]:
            result = self.run_command([EXECUTABLE, *command, "--help"])
            self.assertEqual(result.status, 0, command)
            self.assertIn("Usage", result.output, command)

    def test_the_groups_help_names_its_commands_and_options(self):
        text = self.run_command([EXECUTABLE, "provider", "--help"]).output
        for word in (
            "--container --domain --log-format info item enumerate anchor changes fetch create "
            "modify delete thumbnails"
        ).split():
            self.assertIn(word, text)

    def test_version(self):
        result = self.run_command([EXECUTABLE, "--version"])
        self.assertEqual(result.status, 0)
        self.assertNotEqual(result.output.strip(), "")


class Info(ProviderTest):
    def info(self, *group):
        return self.tulo("info", group=("--log-format", "json", *group))

    def test_prints_all_that_the_extension_works_with(self):
        result = self.info()
        (line,) = result.lines
        bundle = line["hostBundleIdentifier"]
        self.assertTrue(line["appGroup"].endswith("." + bundle))
        self.assertEqual(
            line,
            {
                "hostBundleIdentifier": bundle,
                "appGroup": line["appGroup"],
                "domainPrefix": bundle + ".acct.",
                "domain": bundle + ".acct.primary",
                "account": "primary",
                "databaseName": "state.db",
                "extensionVersion": line["extensionVersion"],
                "container": self.container,
            },
        )
        self.assertEqual(result.status, 0)

    def test_takes_the_domain_as_it_is(self):
        prefix = self.info().lines[0]["domainPrefix"]
        for domain, account, database in (
            (prefix + "primary", "primary", "state.db"),
            (prefix + "42", "42", "state-42.db"),
            (prefix, "", "state-.db"),
            (prefix + "Primary", "Primary", "state-Primary.db"),
            (prefix + "ä b/[c]", "ä b/[c]", "state-ä b/[c].db"),
            ("other.domain", "primary", "state.db"),
            ("[a,b]", "primary", "state.db"),
            ("", "primary", "state.db"),
        ):
            line = self.info("--domain", domain).lines[0]
            self.assertEqual(line["domain"], domain)
            self.assertEqual(line["account"], account)
            self.assertEqual(line["databaseName"], database)

    def test_makes_an_extension_as_every_command_does(self):
        records = self.info().records
        bundle = self.info().lines[0]["hostBundleIdentifier"]
        self.assertEqual(
            records,
            [
                {
                    "subsystem": bundle + ".fileprovider",
                    "category": "Extension",
                    "level": "info",
                    "message": f"init for domain {bundle}.acct.primary (index state.db)",
                }
            ],
        )

    def test_opens_nothing(self):
        self.info()
        self.assertEqual(os.listdir(self.container), [])


class Container(ProviderTest):
    def container_of(self, arguments=(), **environment):
        kept = {"PATH": os.environ["PATH"], "HOME": self.directory}
        result = self.run_command(
            [EXECUTABLE, "provider", *arguments, "info"], env={**kept, **environment}
        )
        self.assertEqual(result.status, 0, result.log)
        return result.lines[0]["container"]

    def test_an_option_names_it(self):
        self.assertEqual(
            self.container_of(["--container", self.container], TULO_CONTAINER="/"), self.container
        )

    def test_the_environment_names_it_next(self):
        self.assertEqual(
            self.container_of(TULO_CONTAINER=self.container, XDG_DATA_HOME="/"), self.container
        )

    def test_the_data_directory_holds_it_next(self):
        os.makedirs(os.path.join(self.directory, "data", "tulo"))
        data = os.path.join(self.directory, "data")
        self.assertEqual(self.container_of(XDG_DATA_HOME=data), os.path.join(data, "tulo"))

    def test_the_home_directory_holds_it_last(self):
        default = os.path.join(self.directory, ".local", "share", "tulo")
        self.assertIsNone(self.container_of())
        os.makedirs(default)
        self.assertEqual(self.container_of(), default)

    def test_what_does_not_exist_is_none(self):
        self.assertIsNone(self.container_of(["--container", self.path("missing")]))
        self.assertIsNone(self.container_of(TULO_CONTAINER=self.path("missing")))

    def test_what_is_not_a_directory_is_none(self):
        with open(self.path("file"), "w"):
            pass
        self.assertIsNone(self.container_of(["--container", self.path("file")]))

    def test_an_empty_option_is_none_and_not_the_default(self):
        self.assertIsNone(self.container_of(["--container", ""], TULO_CONTAINER=self.container))

    def test_without_one_lookups_fail_and_listings_are_empty(self):
        missing = ["--container", self.path("missing")]
        group = f"app group {self.tulo('info').lines[0]['appGroup']} did not resolve"
        for arguments, status, lines in (
            (["item", "i:U"], 1, [{"item": None, "error": NO_SUCH_ITEM}, progress(1, 1)]),
            (
                ["enumerate", ROOT],
                0,
                [{"didEnumerateItems": []}, {"finishEnumerating": {"nextPage": None}}],
            ),
        ):
            result = self.run_command(
                [EXECUTABLE, "provider", *missing, "--log-format", "json", *arguments]
            )
            self.check(result, status, lines)
            self.assertEqual(
                [(r["category"], r["level"], r["message"]) for r in result.records[1:]],
                [("Index", "error", group)],
            )


class Log(ProviderTest):
    def test_json_has_one_object_for_each_record(self):
        result = self.tulo("item", "i:U")
        path = self.path("state.db")
        self.assertEqual(
            [(r["category"], r["level"], r["message"]) for r in result.records[1:]],
            [("Index", "info", f"no index at {path} yet")],
        )
        for record in result.records:
            self.assertEqual(set(record), {"subsystem", "category", "level", "message"})

    def test_text_has_one_line_for_each_record(self):
        self.host({"ok": False, "error": "two\nlines"})
        result = self.tulo("delete", "i:U", group=())
        lines = result.log.splitlines()
        self.assertEqual(len(lines), 2, result.log)
        self.assertIn("init for domain", lines[0])
        self.assertIn("delete failed for U", lines[1])

    def test_text_is_the_default(self):
        explicit = self.tulo("item", "i:U", group=("--log-format", "text"))
        default = self.tulo("item", "i:U", group=())
        self.assertEqual(explicit.log, default.log)
        self.assertRaises(json.JSONDecodeError, lambda: default.records)

    def test_a_message_stays_whole_in_json(self):
        message = 'say "a\\b"\n\u00e4\u20ac\U0001f600'
        self.host({"ok": False, "error": message})
        record = self.tulo("delete", "i:U").records[-1]
        self.assertEqual(record["message"], f'delete failed for U: failed("{message}")')
        self.assertEqual(record["level"], "error")


class Process(ProviderTest):
    def test_each_command_is_a_fresh_start(self):
        self.index(folders=[("F", "Docs", None)])
        first = self.tulo("item", "f:F")
        second = self.tulo("item", "f:F")
        self.check(first, 0, [{"item": folder_item("F", "Docs"), "error": None}, progress(1, 1)])
        self.assertEqual((first.output, first.log), (second.output, second.log))

    def test_waits_for_the_completion_and_ignores_the_broken_pipe_signal(self):
        release = threading.Event()
        self.addCleanup(release.set)

        def answer(_request):
            release.wait(PATIENCE)
            return {"ok": True}

        host = self.host(answer)
        process = subprocess.Popen(
            self.command(["delete", "i:U"]), stdout=subprocess.PIPE, stderr=subprocess.PIPE
        )
        end = time.monotonic() + PATIENCE
        while not host.requests and time.monotonic() < end:
            time.sleep(0.001)
        self.assertEqual(len(host.requests), 1)
        self.assertIsNone(process.poll())
        with open(f"/proc/{process.pid}/status") as status:
            ignored = [line for line in status if line.startswith("SigIgn:")][0].split()[1]
        self.assertTrue(int(ignored, 16) & (1 << (signal.SIGPIPE - 1)))
        release.set()
        output, log = process.communicate(timeout=PATIENCE)
        result = Result(process.returncode, output.decode(), log.decode())
        self.check(result, 0, [{"error": None}, progress(1, 1)])

    def test_a_closed_standard_output_is_no_crash(self):
        reading, writing = os.pipe()
        os.close(reading)
        done = subprocess.run(
            self.command(["info"]), stdout=writing, stderr=subprocess.PIPE, timeout=PATIENCE
        )
        os.close(writing)
        self.assertGreaterEqual(done.returncode, 0)

    def test_a_host_that_hangs_up_at_once_is_no_crash(self):
        self.host(None)
        for _ in range(10):
            result = self.tulo("delete", "i:" + "U" * 100_000)
            self.assertEqual(result.status, 1)
            self.assertIn(result.lines[0]["error"]["code"], (-1004, -2005))


class Changes(ProviderTest):
    """The commands about changes, as far as they need no mount."""

    def test_wrong_usage(self):
        self.check_wrong_usage("flush")
        self.check_wrong_usage("flush", self.container, self.container)
        self.check_wrong_usage("flush", "--nonsense", self.container)
        self.check_wrong_usage("discard")
        self.check_wrong_usage("discard", "--yes")
        self.check_wrong_usage("retry", "--yes")

    def test_a_time_out_that_is_none(self):
        for value in ("0", "-1", "soon", "nan"):
            self.check_wrong_usage("flush", "--wait", "--timeout", value, self.container)
            self.check_wrong_usage("mount", "--sync", "--sync-timeout", value, self.container)

    def test_waiting_for_the_host_where_nothing_can_be_changed(self):
        self.check_wrong_usage("mount", "--sync", "--read-only", self.container)

    def test_a_time_out_of_nothing(self):
        self.check_wrong_usage("flush", "--timeout", "1", self.container)
        self.check_wrong_usage("mount", "--sync-timeout", "1", self.container)

    def test_a_path_in_no_mount(self):
        for command in ("flush", "retry", "discard", "pin", "unpin", "download", "evict"):
            for path, reason in (
                (self.container, "not in a mounted account"),
                (self.path("missing/file"), "No such file or directory"),
            ):
                result = self.run_command([EXECUTABLE, command, path])
                self.assertEqual((result.status, result.output), (1, ""), command)
                self.assertEqual(result.log, f"tulo: {path}: {reason}\n")

    def test_a_deleted_file_in_no_mount(self):
        for command in ("flush", "retry", "discard"):
            result = self.run_command([EXECUTABLE, command, self.path("missing")])
            self.assertEqual((result.status, result.output), (1, ""), command)
            self.assertEqual(result.log, f"tulo: {self.container}: not in a mounted account\n")

    def test_retry_of_everything_without_a_mount(self):
        state = dict(os.environ, XDG_STATE_HOME=self.container)
        result = self.run_command([EXECUTABLE, "retry"], env=state)
        self.assertEqual((result.status, result.output), (1, ""))
        self.assertEqual(result.log, "tulo: no account is mounted\n")


if __name__ == "__main__":
    main()
