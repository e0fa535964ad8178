"""The build without a preset, and the program where it is installed.

Usage: python3 install_test.py CMAKE BUILD_FOLDER [unittest arguments]
"""

import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

CMAKE = sys.argv.pop(1)
BUILD = os.path.abspath(sys.argv.pop(1))
SOURCE = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def run(*arguments, **options):
    return subprocess.run(arguments, capture_output=True, text=True, timeout=300, check=True,
                          **options).stdout


class InstallTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.installed = tempfile.mkdtemp(prefix="lidcam-installed-")
        cls.addClassCleanup(shutil.rmtree, cls.installed)
        run(CMAKE, "--install", BUILD, "--prefix", cls.installed)
        cls.program = os.path.join(cls.installed, "bin/lidcam")

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="lidcam-test-")
        self.addCleanup(shutil.rmtree, self.folder)

    def path(self, name):
        return os.path.join(self.folder, name)

    def test_the_installed_program_runs_from_another_folder(self):
        os.mkdir(self.path("elsewhere"))
        run(self.program, "stream", "--fast", "--frames", "2", "-o", "card.png",
            cwd=self.path("elsewhere"), env={"HOME": self.folder})
        self.assertEqual(sorted(os.listdir(self.path("elsewhere"))),
                         ["card-0001.png", "card-0002.png"])

    def test_the_installed_program_finds_its_modules(self):
        modules = [name for _, _, names in os.walk(os.path.join(self.installed, "lib")) for name in names
                   if name.startswith("lidcam-") and name.endswith(".so")]
        if "lidcam-film.so" not in modules:
            self.skipTest("built without films")
        film = self.path("clip.mkv")
        run(self.program, "stream", "--fast", "--frames", "2", "-o", film, env={"HOME": self.folder})
        self.assertGreater(os.path.getsize(film), 1000)

    def test_the_modules_name_the_library_whose_calls_they_need(self):
        calls = {}
        for folder, _, names in os.walk(os.path.join(self.installed, "lib")):
            for name in names:
                if name.startswith("lidcam-") and name.endswith(".so"):
                    path = os.path.join(folder, name)
                    if re.search(r" UND lidcam_\w+", run("readelf", "--dyn-syms", "--wide", path)):
                        calls[name] = run("readelf", "--dynamic", path)
        for name, needed in calls.items():
            self.assertIn("Shared library: [liblidcam.so.0]", needed, name)

    def test_the_udev_rule_gives_every_identity_to_users_before_seats_are_looked_at(self):
        folder = os.path.join(self.installed, "lib/udev/rules.d")
        name = min(os.listdir(folder))
        self.assertTrue("60" <= name[:2] <= "72", name)
        with open(os.path.join(folder, name), encoding="utf-8") as rules:
            lines = [line for line in rules if "idVendor" in line]
        named = []
        for line in lines:
            self.assertIn('TAG+="uaccess"', line)
            self.assertIn('GROUP="plugdev", MODE="0660"', line)
            self.assertIn('ENV{LIDCAM_CAMERA}="1"', line)
            vendor = re.search(r'idVendor}=="([^"]*)"', line)[1]
            products = re.search(r'idProduct}=="([^"]*)"', line)[1]
            named += [f"{vendor}:{product}" for product in products.split("|")]
        cameras = json.loads(run(self.program, "list", "--json"))
        self.assertEqual(sorted(named), sorted(camera["identity"] for camera in cameras
                                               if camera["kind"] == "simulated"))
        self.assertEqual(len(named), 7)

    def test_the_systemd_unit_runs_a_command_that_the_installed_program_has(self):
        unit = os.path.join(self.installed, "lib/systemd/user/lidcam-share.service")
        if not os.path.exists(unit):
            self.skipTest("built without libpipewire-0.3")
        with open(unit, encoding="utf-8") as lines:
            command = re.search(r"^ExecStart=lidcam (.*)$", lines.read(), re.M)[1]
        self.assertIn("share", run(self.program, *command.split(), "--help"))

    def starts_of_a_session(self, unit):
        """What the user's systemd would start with a unit: it only plans, as a user without privileges."""
        run("chmod", "-R", "a+rX", self.folder)
        as_nobody = ["setpriv", "--reuid", "65534", "--clear-groups"] if os.getuid() == 0 else []
        environment = dict(os.environ, XDG_RUNTIME_DIR=self.path("run"), XDG_CONFIG_HOME=self.path("config"),
                           SYSTEMD_UNIT_PATH=f"{self.path('config/systemd/user')}:{self.path('units')}:")
        plan = subprocess.run([*as_nobody, "/lib/systemd/systemd", "--user", "--test", "--unit", unit],
                              capture_output=True, text=True, timeout=60, check=False, env=environment).stdout
        started = re.findall(r"Action: (\S+) -> start", plan)
        self.assertIn(unit, started)
        return started

    def test_a_camera_that_is_plugged_in_is_shared_only_where_its_user_has_asked_for_it(self):
        units = os.path.join(self.installed, "lib/systemd/user")
        if not os.path.exists(units):
            self.skipTest("built without libpipewire-0.3")
        if not os.path.exists("/lib/systemd/systemd") or not shutil.which("setpriv"):
            self.skipTest("systemd is not installed")
        share_rules = os.path.join(self.installed, "lib/udev/rules.d/71-lidcam-share.rules")
        with open(share_rules, encoding="utf-8") as rules:
            target = re.search(r'SYSTEMD_USER_WANTS}\+="([^"]+)"', rules.read())[1]
        for folder in ("run", "config/systemd/user", "units"):
            os.makedirs(self.path(folder))
        os.chmod(self.path("run"), 0o777)
        for name in os.listdir(units):
            shutil.copy(os.path.join(units, name), self.path("units"))
        with open(self.path("units/pipewire.service"), "w", encoding="utf-8") as unit:
            unit.write("[Service]\nExecStart=/bin/true\n")
        self.assertNotIn("lidcam-share.service", self.starts_of_a_session(target))
        # What systemctl --user add-wants does.
        os.makedirs(self.path(f"config/systemd/user/{target}.wants"))
        os.symlink(self.path("units/lidcam-share.service"),
                   self.path(f"config/systemd/user/{target}.wants/lidcam-share.service"))
        self.assertIn("lidcam-share.service", self.starts_of_a_session(target))

    def test_udev_names_what_a_session_may_start_with_a_camera_and_with_no_other_device(self):
        rules = self.path("rules.d")
        shutil.copytree(os.path.join(self.installed, "lib/udev/rules.d"), rules)
        if not os.path.exists(os.path.join(rules, "71-lidcam-share.rules")):
            self.skipTest("built without libpipewire-0.3")
        # udev reads rules of the system only: these are there for one program.
        test = ["unshare", "-m", "sh", "-c", "mkdir -p /etc/udev/rules.d && mount --bind \"$0\" /etc/udev/rules.d && "
                "udevadm test --action=add /sys/class/mem/null 2>&1", rules]
        if os.getuid() != 0 or subprocess.run(test, capture_output=True, timeout=60, check=False).returncode != 0:
            self.skipTest("udev's rules can't be tried here")
        self.assertNotIn("SYSTEMD_USER_WANTS", run(*test))
        with open(os.path.join(rules, "70-as-camera.rules"), "w", encoding="utf-8") as rule:
            rule.write('SUBSYSTEM=="mem", ENV{LIDCAM_CAMERA}="1"\n')
        self.assertIn("SYSTEMD_USER_WANTS=lidcam-camera.target\n", run(*test))

    def test_the_installed_program_tells_the_projects_version(self):
        with open(os.path.join(BUILD, "CMakeCache.txt"), encoding="utf-8") as cache:
            version = re.search(r"^CMAKE_PROJECT_VERSION:STATIC=(.*)$", cache.read(), re.M)[1]
        self.assertRegex(version, r"^\d+\.\d+\.\d+$")
        self.assertEqual(run(self.program, "--version"), f"lidcam {version}\n")

    def test_the_licence_and_the_documents_are_installed(self):
        documents = os.path.join(self.installed, "share/doc/lidcam")
        with open(os.path.join(documents, "README.md"), encoding="utf-8") as readme:
            links = re.findall(r"\]\((?!http)([^)#]+)", readme.read())
        self.assertIn("LICENSE", links)
        for link in links:
            self.assertTrue(os.path.exists(os.path.join(documents, link)), link)

    def test_every_command_has_a_manual_page_of_what_its_help_prints(self):
        listed = run(self.program, "--help").split("Subcommands:\n")[1].split("\n\n")[0].split("\n")
        for name in (line.split()[0] for line in listed):
            path = os.path.join(self.installed, f"share/man/man1/lidcam-{name}.1")
            page = run("man", "--warnings", "-E", "UTF-8", "-l", path, env=dict(os.environ, MANWIDTH="300"))
            for option in re.findall(r"^  +(?:-\w,)?(--[\w-]+)", run(self.program, name, "--help"), re.M):
                self.assertIn(option, page, name)
            self.assertEqual(subprocess.run(["man", "--warnings", "-l", path], capture_output=True,
                                            text=True, check=True).stderr, "", name)

    def test_the_shells_find_their_completion(self):
        for file in ("bash-completion/completions/lidcam", "zsh/site-functions/_lidcam",
                     "fish/vendor_completions.d/lidcam.fish"):
            self.assertTrue(os.path.exists(os.path.join(self.installed, "share/" + file)), file)

    def test_a_build_without_a_preset_is_optimised_and_stops_at_no_warning(self):
        def stops_at_warnings(folder):
            with open(os.path.join(folder, "compile_commands.json"), encoding="utf-8") as file:
                return {bool(re.search(r" -Werror( |$)", entry["command"]))
                        for entry in json.load(file)}

        run(CMAKE, "-S", SOURCE, "-B", self.path("build"), "-DBUILD_TESTING=OFF")
        self.assertEqual(stops_at_warnings(self.path("build")), {False})
        with open(self.path("build/CMakeCache.txt"), encoding="utf-8") as cache:
            self.assertIn("CMAKE_BUILD_TYPE:STRING=RelWithDebInfo\n", cache.read())

    def test_warnings_are_errors_in_every_preset(self):
        with open(os.path.join(SOURCE, "CMakePresets.json"), encoding="utf-8") as file:
            presets = {preset["name"]: preset for preset in json.load(file)["configurePresets"]}
        self.assertEqual(presets["base"]["cacheVariables"], {"CMAKE_COMPILE_WARNING_AS_ERROR": "ON"})
        for name, preset in presets.items():
            self.assertTrue(name == "base" or preset["inherits"] in presets, name)
            self.assertEqual(name == "base",
                             "CMAKE_COMPILE_WARNING_AS_ERROR" in preset["cacheVariables"], name)


if __name__ == "__main__":
    unittest.main(verbosity=1)
