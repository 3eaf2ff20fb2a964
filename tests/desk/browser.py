"""Chromium, driven by Selenium."""

from __future__ import annotations

import os
from pathlib import Path
from types import TracebackType
from typing import Any

import axe
from app_under_test import BIN
from desk_process import Desk
from selenium import webdriver
from selenium.common.exceptions import StaleElementReferenceException
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.remote.webelement import WebElement
from selenium.webdriver.support.ui import WebDriverWait

PATIENCE_S = 60
DEPS = Path(os.environ["KESTREL_DEPS_DIR"])


class Browser:
    desk: Desk

    def __init__(self, folder: Path) -> None:
        self.downloads = folder / "downloads"
        self.downloads.mkdir()
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--window-size=1400,900",
                         "--autoplay-policy=no-user-gesture-required", "--disable-background-networking",
                         "--hide-scrollbars", "--host-resolver-rules=MAP evil.example 127.0.0.1", f"--user-data-dir={folder / 'profile'}"):
            options.add_argument(argument)
        options.add_experimental_option("prefs", {"download.default_directory": str(self.downloads)})
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.driver = webdriver.Chrome(options, webdriver.ChromeService("/usr/bin/chromedriver"))

    def __enter__(self) -> Browser:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.driver.quit()

    def open(self, page: str) -> None:
        """A page of the desk by its hash, opened afresh."""
        self.driver.get("about:blank")
        self.driver.get(f"http://{self.desk.host}/{page}")
        self.wait_for("main > *")

    def js(self, script: str, *arguments: Any) -> Any:
        return self.driver.execute_script(script, *arguments)

    def ask(self, path: str) -> Any:
        """What the desk answers the page."""
        return self.driver.execute_async_script(
            "const [path, done] = arguments; fetch(path).then((answer) => answer.json()).then(done)", path)

    def wait(self, condition: Any, what: str = "") -> Any:
        return WebDriverWait(self.driver, PATIENCE_S, 0.05, [StaleElementReferenceException]).until(lambda _: condition(), what)

    def wait_for(self, selector: str) -> WebElement:
        return self.wait(lambda: next(iter(self.all(selector)), None), selector)  # type: ignore[no-any-return]

    def all(self, selector: str) -> list[WebElement]:
        return self.driver.find_elements(By.CSS_SELECTOR, selector)

    def press_button(self, name: str) -> None:
        """The button of that text or label, as soon as there is one."""
        def press() -> bool:
            found = next((one for one in self.all("button") if name in (one.text, one.get_attribute("aria-label"))), None)
            if found:
                found.send_keys(Keys.ENTER)
            return found is not None
        self.wait(press, f"the button {name}")

    def text(self, selector: str) -> str:
        return str(self.js("return document.querySelector(arguments[0])?.textContent ?? ''", selector))

    def wait_text(self, selector: str, part: str) -> str:
        self.wait(lambda: part in self.text(selector), f"{part!r} in {selector}")
        return self.text(selector)

    def press(self, *keys: str) -> None:
        self.driver.switch_to.active_element.send_keys(*keys)

    def type(self, text: str) -> None:
        self.press(Keys.CONTROL, "a")
        self.press(text)

    def player(self) -> dict[str, Any]:
        """Where the player is, in seconds."""
        return dict(self.js("const v = document.querySelector('video');"
                            "return {time: v.currentTime, paused: v.paused, rate: v.playbackRate, error: v.error?.code}"))

    def wait_playing(self, after: float) -> None:
        """Until sound really plays: the player's time moves on by itself."""
        first = self.wait(lambda: (state := self.player())["time"] > after and not state["paused"] and state,
                          "the player runs")
        self.wait(lambda: self.player()["time"] > first["time"] + 0.2, "the player's time moves")

    def spoken(self) -> str:
        """The word that is lit."""
        return str(self.js("return [...(CSS.highlights.get('spoken') ?? [])].map(String).join(' ')"))

    def violations(self) -> list[str]:
        """What axe-core finds on the page as it is."""
        if not self.js("return 'axe' in window"):
            self.js(axe.source(DEPS))
        found = self.driver.execute_async_script(
            "const done = arguments[0]; axe.run(document, {resultTypes: ['violations']}).then((r) => done(r.violations),"
            "(e) => done([{id: String(e), nodes: []}]))")
        return [f"{one['id']}: {node['html'][:150]} {node.get('failureSummary', '')}" for one in found
                for node in one["nodes"] or [{"html": ""}]]

    def violations_everywhere(self) -> list[str]:
        """The same in light and dark, at 1024 pixels, and with these at 200 %."""
        found = []
        for scheme in ("light", "dark"):
            for width, height in ((1400, 900), (1024, 768), (512, 384)):
                self.appearance(scheme, width, height)
                overflow = self.js("return document.documentElement.scrollWidth - innerWidth")
                if overflow > 0:
                    found.append(f"{scheme}, {width} pixels: {overflow} pixels wider than the window")
                found += [f"{scheme}, {width} pixels: {one}" for one in self.violations()]
        self.appearance("light", 1400, 900)
        return found

    def appearance(self, scheme: str, width: int, height: int) -> None:
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia",
                                    {"features": [{"name": "prefers-color-scheme", "value": scheme},
                                                  {"name": "prefers-reduced-motion", "value": "reduce"}]})
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                    {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})

    def picture(self, name: str) -> None:
        """For the documents: kept beside the test results."""
        folder = BIN.parent / "test-results" / "pictures"
        folder.mkdir(parents=True, exist_ok=True)
        self.driver.save_screenshot(str(folder / name))

    def complaints(self) -> list[str]:
        """What the browser's console says of failures and refusals."""
        return [entry["message"] for entry in self.driver.get_log("browser") if entry["level"] == "SEVERE"]  # type: ignore[no-untyped-call]
