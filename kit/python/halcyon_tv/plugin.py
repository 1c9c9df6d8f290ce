"""Fixtures for pytest, which finds them by itself if the package is installed; else: pytest -p halcyon_tv.plugin"""
import pytest

from halcyon_tv import Tv, channel_list


def pytest_addoption(parser):
    parser.addoption("--halcyon-app", metavar="PATH", help="the build of the application that TVs run")


@pytest.fixture
def make_tv(tmp_path, request):
    """Makes TVs that share a cloud: make_tv("new"), make_tv("old", channels="my-list.conf")."""
    def make(name, **options):
        return Tv(tmp_path, name, app=request.config.getoption("--halcyon-app"), **options)
    return make


@pytest.fixture
def factory_tv(make_tv):
    """A TV that is fresh from the factory."""
    return make_tv("factory")


@pytest.fixture
def tv(make_tv):
    """A TV with a channel list of its own."""
    return make_tv("tv", channels=channel_list("channels.conf"))
