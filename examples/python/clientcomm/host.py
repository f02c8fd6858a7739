"""The host's side: the start, services, and the upgrade delegate."""

import ctypes
from typing import NamedTuple, Optional

from clientcomm._library import (
    Error,
    Status,
    SuiteInfoRecord,
    WillUpgrade,
    check,
    from_text,
    guarded,
    library,
    query,
    take_string,
    to_text,
)


class SuiteInfo(NamedTuple):
    url: Optional[str]
    width: int
    height: int


class UpgradeDelegate:
    """Is told of upgrades until it is closed. Derive from it, and answer each call by ready_to_upgrade."""

    def __init__(self):
        self._function = WillUpgrade(self._told)
        handle = ctypes.c_void_p()
        check(library.clientcomm_set_upgrade_delegate(self._function, None, None, ctypes.byref(handle)))
        self._handle = handle.value

    def will_upgrade(self, code, description):
        """code is 0 when the helper is about to upgrade the product, else that of its error."""
        raise NotImplementedError

    def close(self):
        """May be called by will_upgrade itself. Raises Error when it is closed already."""
        check(library.clientcomm_upgrade_delegate_release(self._handle))

    def _told(self, _context, error):
        if error:
            record = error.contents
            guarded(self.will_upgrade, record.code, from_text(record.description))
        else:
            guarded(self.will_upgrade, 0, None)


def start():
    check(library.clientcomm_start())


def is_helper_alive():
    status = library.clientcomm_is_helper_alive()
    if status not in (Status.OK, Status.NOT_RUNNING):
        raise Error(status)
    return status == Status.OK


def stop_helper():
    check(library.clientcomm_stop_helper())


def show_helper():
    check(library.clientcomm_show_helper())


def hide_helper():
    check(library.clientcomm_hide_helper())


def ask_client_id():
    return query(library.clientcomm_ask_client_id)


def network_error_page():
    return query(library.clientcomm_network_error_page)


def register_suite():
    record = SuiteInfoRecord()
    status = library.clientcomm_register_suite(ctypes.byref(record))
    if status != Status.NO_VALUE:
        check(status)
    return SuiteInfo(take_string(record.url), record.width, record.height)


def upload_log(email, path, title, description):
    check(library.clientcomm_upload_log(to_text(email), to_text(path), to_text(title), to_text(description)))


def count_use(target, key):
    check(library.clientcomm_count_use(to_text(target), to_text(key)))


def collect_string(target, value):
    check(library.clientcomm_collect_string(to_text(target), to_text(value)))


def upgrade_product():
    check(library.clientcomm_upgrade_product())


def ready_to_upgrade(is_ready):
    check(library.clientcomm_ready_to_upgrade(is_ready))
