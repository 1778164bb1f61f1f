"""A headless browser and what the test asks of it."""
import json
import time

from selenium import webdriver
from selenium.common.exceptions import JavascriptException
from selenium.webdriver import ActionChains
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.keys import Keys

PATIENCE = 40  # seconds for what has to come, on a machine that has much else to do


class Browser:
    def __init__(self, folder):
        options = Options()
        options.binary_location = '/usr/bin/chromium'
        for argument in (
            '--headless=new',
            '--no-sandbox',
            '--disable-dev-shm-usage',
            '--disable-gpu',
            '--hide-scrollbars',
            '--disable-background-networking',
            '--no-first-run',
            f'--user-data-dir={folder}',
        ):
            options.add_argument(argument)
        options.set_capability('goog:loggingPrefs', {'browser': 'ALL', 'performance': 'ALL'})
        self.driver = webdriver.Chrome(service=Service('/usr/bin/chromedriver'), options=options)
        self.driver.set_script_timeout(PATIENCE)
        self.size(1920, 1080)

    def size(self, width, height):
        self.devtools(
            'Emulation.setDeviceMetricsOverride', width=width, height=height, deviceScaleFactor=1, mobile=False
        )

    def dark(self, yes):
        self.devtools(
            'Emulation.setEmulatedMedia',
            features=[{'name': 'prefers-color-scheme', 'value': 'dark' if yes else 'light'}],
        )

    def devtools(self, command, **arguments):
        return self.driver.execute_cdp_cmd(command, arguments)

    def js(self, code, *arguments):
        return self.driver.execute_script(code, *arguments)

    def go(self, address):
        self.driver.get(address)

    def wait(self, condition, what, patience=PATIENCE):
        """Waits until the JavaScript expression, or the function, gives something, and returns that."""
        end = time.monotonic() + patience
        found = None
        while time.monotonic() < end:
            try:
                found = condition() if callable(condition) else self.js(f'return {condition}')
            except JavascriptException:
                found = None
            if found:
                return found
            time.sleep(0.03)
        raise AssertionError(
            f'{what}: not within {patience} s; the page says: {self.js("return document.body.innerText")[:1500]}'
        )

    def click(self, selector):
        self.wait(f'document.querySelector({json.dumps(selector)})', selector)
        self.driver.find_element('css selector', selector).click()

    def keys(self, *keys):
        ActionChains(self.driver, duration=0).send_keys(*keys).perform()

    def scan(self, text):
        """As a scanner does where no field has the focus: the keys within some milliseconds, then Enter. The browser's
        driver may be slower than a person on a busy machine, so these are made in the page."""
        self.js(
            """for (const key of [...arguments[0], 'Enter'])
                document.activeElement.dispatchEvent(new KeyboardEvent('keydown', {key, bubbles: true, cancelable: true}));""",
            text,
        )

    def console(self):
        return [entry['message'] for entry in self.driver.get_log('browser')]

    def requests(self):
        """The addresses of all requests since the last call."""
        messages = (json.loads(entry['message'])['message'] for entry in self.driver.get_log('performance'))
        return [
            message['params']['request']['url']
            for message in messages
            if message['method'] == 'Network.requestWillBeSent'
        ]

    def leave(self):
        self.driver.quit()


ENTER, TAB = Keys.ENTER, Keys.TAB
