# SPDX-License-Identifier: MIT
"""Tests the documentation site in headless Chromium: test_site.py SITE SCREENSHOTS

Checks on every page, in a narrow and a wide window, that internal links resolve, that the console
shows no errors and that the page does not scroll horizontally. Checks that the search finds certain
words and every function.
"""

import contextlib
import functools
import http.server
import pathlib
import re
import sys
import threading
import urllib.parse

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import WebDriverWait

PHONE, DESK = (390, 844), (1280, 900)
WORDS = ("backup", "encrypted", "thread safe")
# The theme's content area may scroll even if the page does not.
TOO_WIDE = """return [document.documentElement, document.querySelector('.content')]
    .some(area => area.scrollWidth > area.clientWidth)"""
PICTURED = ("index", "guides/archives", "reference/dialogs", "surprises", "diagrams")


class QuietHandler(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *args):
        pass


@contextlib.contextmanager
def served(site):
    """Serves the site over HTTP, because browsers do not let file:// pages read other files."""
    handler = functools.partial(QuietHandler, directory=site)
    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler) as server:
        threading.Thread(target=server.serve_forever, daemon=True).start()
        yield f"http://127.0.0.1:{server.server_port}/"
        server.shutdown()


@contextlib.contextmanager
def browser():
    options = webdriver.ChromeOptions()
    for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    try:
        yield driver
    finally:
        driver.quit()


def resize(driver, size):
    driver.execute_cdp_cmd(
        "Emulation.setDeviceMetricsOverride",
        {"width": size[0], "height": size[1], "deviceScaleFactor": 1, "mobile": size == PHONE},
    )


def use_scheme(driver, scheme):
    feature = {"name": "prefers-color-scheme", "value": scheme}
    driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [feature]})


def console_errors(driver):
    return [entry["message"] for entry in driver.get_log("browser") if entry["level"] == "SEVERE"]


def faults_of_pages(driver, address, pages):
    links, targets = [], {}
    for page in pages:
        driver.get(address + page)
        yield from (f"{page}: {message}" for message in console_errors(driver))
        for size in (PHONE, DESK):
            resize(driver, size)
            if driver.execute_script(TOO_WIDE):
                yield f"{page}: scrolls horizontally in a window of {size[0]} pixels"
        targets[page] = set(
            driver.execute_script("return [...document.querySelectorAll('[id]')].map(e => e.id)")
        )
        hrefs = driver.execute_script("return [...document.links].map(link => link.href)")
        links += [(page, href) for href in hrefs if href.startswith(address)]
    for page, href in links:
        path, _, fragment = href.removeprefix(address).partition("#")
        path = path.partition("?")[0] or "index.html"
        fragment = urllib.parse.unquote(fragment)
        if path not in targets or (fragment and fragment not in targets[path]):
            yield f"{page}: broken link to {href.removeprefix(address)}"


def faults_of_dark_mode(driver, address):
    use_scheme(driver, "dark")
    driver.get(address + "diagrams.html")
    colour = driver.execute_script("return getComputedStyle(document.body).backgroundColor")
    if sum(map(int, re.findall(r"\d+", colour)[:3])) > 3 * 64:
        yield f"dark mode: the background is {colour}"
    filters = driver.execute_script(
        "return [...document.querySelectorAll('object, img')].map(e => getComputedStyle(e).filter)"
    )
    if not filters or "none" in filters:
        yield f"dark mode: some images have no filter: {filters}"
    use_scheme(driver, "light")


def results(driver):
    status = "return document.querySelector('#search-results > p.search-summary')?.innerText"
    WebDriverWait(driver, 30, poll_frequency=0.05).until(lambda it: it.execute_script(status))
    return driver.execute_script(
        "return [...document.querySelectorAll('#search-results .search > li > a')].map(a => a.href)"
    )


def function_names(xml):
    """Returns the unqualified names of the functions from Doxygen's output."""
    public = re.compile(r'<memberdef kind="function"[^>]* prot="public".*?</memberdef>', re.S)
    for file in [*xml.glob("group__*.xml"), *xml.glob("class*.xml")]:
        for member in public.findall(file.read_text(encoding="utf-8")):
            name = re.search(r"<(?:qualified)?name>([\w:~]+)</", member)
            if name and "~" not in name[1]:
                yield name[1].rpartition("::")[2]


def faults_of_search(driver, address, functions):
    resize(driver, DESK)
    for words in WORDS:
        driver.get(address + "index.html")
        field = driver.find_element(By.CSS_SELECTOR, "input[name=q]")
        field.send_keys(words, Keys.ENTER)
        WebDriverWait(driver, 30).until(lambda it: "search.html" in it.current_url)
        if not results(driver):
            yield f"search: no results for {words}"
    for name in functions:
        driver.execute_script(
            "document.getElementById('search-results').replaceChildren();"
            "Search.performSearch(arguments[0])",
            name,
        )
        anchors = [urllib.parse.unquote(href).partition("#")[2] for href in results(driver)]
        if not any(name in anchor for anchor in anchors):
            yield f"search: {name} is not found"
    yield from (f"search: {message}" for message in console_errors(driver))


def take_pictures(driver, address, directory):
    directory.mkdir(parents=True, exist_ok=True)
    for scheme in ("light", "dark"):
        use_scheme(driver, scheme)
        for size in (PHONE, DESK):
            resize(driver, size)
            for page in PICTURED:
                driver.get(f"{address}{page}.html")
                name = f"{page.replace('/', '_')}-{size[0]}-{scheme}.png"
                driver.save_screenshot(str(directory / name))


def main():
    site, pictures = map(pathlib.Path, sys.argv[1:])
    pages = sorted(str(page.relative_to(site)) for page in site.rglob("*.html"))
    functions = sorted(set(function_names(site.parent / "xml")))
    with served(site) as address, browser() as driver:
        take_pictures(driver, address, pictures)
        faults = [
            *faults_of_pages(driver, address, pages),
            *faults_of_dark_mode(driver, address),
            *faults_of_search(driver, address, functions),
        ]
    print(f"{len(pages)} pages, {len(functions)} functions, {len(faults)} faults")
    for fault in faults:
        print(fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
