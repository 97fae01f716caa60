# SPDX-License-Identifier: MIT
"""Long calls that Ctrl-C can end: the main thread waits for them in Python, where signals are seen."""

from __future__ import annotations

import threading
from typing import Any, Callable, List, Optional, Tuple


def interruptible(call: Callable[[], int], host: Any) -> Tuple[int, Optional[BaseException]]:
    """Makes a call; returns its code, and what interrupted it, if anything did."""
    if threading.current_thread() is not threading.main_thread():
        return call(), None
    codes: List[int] = []
    failures: List[BaseException] = []

    def work() -> None:
        try:
            codes.append(call())
        except BaseException as failure:  # what the call itself raises, e.g. for a closed mosaic
            failures.append(failure)

    worker = threading.Thread(target=work, name="panoval")
    worker.start()
    interruption: Optional[BaseException] = None
    while worker.is_alive():
        try:
            worker.join()
        except BaseException as signal:  # KeyboardInterrupt, or what another handler raises
            interruption = interruption or signal
            host.cancel()
    if failures:
        raise failures[0]
    return codes[0], interruption
