"""Shared by the package's tests: they drive trekcom against the simulated
receiver in this process, and the trekcom tool (TREKCOM_TOOL) as a second
opinion on what the same unit holds."""

import os
import signal
import subprocess
import sys

import pytest

import trekcom


@pytest.fixture
def tool():
    path = os.environ.get("TREKCOM_TOOL")
    if not path:
        pytest.skip("TREKCOM_TOOL is not set")
    return path


@pytest.fixture
def gps():
    with trekcom.open("sim") as receiver:
        yield receiver


def run_python(code, *args, **kwargs):
    """Runs code in a fresh interpreter with this one's import path, Ctrl-C
    reaching it as at a terminal (a test runner started in the background
    may have it ignored, and the child would inherit that)."""
    env = dict(os.environ, PYTHONPATH=os.pathsep.join(p for p in sys.path if p))
    return subprocess.Popen([sys.executable, "-c", code, *args], env=env, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, text=True,
                            preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL), **kwargs)
