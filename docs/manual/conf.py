"""Builds the manual from the Markdown pages; cmake/ClientCommManual.cmake calls Sphinx with it."""

import os

from pygments.lexers.special import TextLexer

project = "ClientComm"
html_title = "ClientComm"
extensions = ["myst_parser"]
root_doc = "index"
# The depth of headings that a link may lead to.
myst_heading_anchors = 4
highlight_language = "none"
# What a reader fills in, as "<folder>", is no shell.
suppress_warnings = ["misc.highlighting_failure"]
templates_path = ["templates"]
html_theme = "alabaster"
html_theme_options = {
    "description": "A client library that installs, watches and calls a companion application",
    "fixed_sidebar": True,
    "page_width": "1180px",
    "sidebar_width": "240px",
    "show_powered_by": False,
}
html_sidebars = {"**": ["about.html", "searchbox.html", "navigation.html", "reference.html"]}
html_use_index = False
html_show_copyright = False
html_show_sourcelink = False
html_copy_source = False


class Unhighlighted(TextLexer):
    """Languages that Pygments does not know; the code is shown as it is."""


def show_source_as_text(app, env, node, content):
    """A link to a file of the project that is no page of the manual becomes its text."""
    page = os.path.dirname(env.doc2path(node["refdoc"], base=False))
    path = os.path.normpath(os.path.join(page, node["reftarget"]))
    return content if os.path.exists(os.path.join(app.config.sources, path)) else None


def setup(app):
    app.add_config_value("sources", "", "env")
    app.connect("missing-reference", show_source_as_text)
    for language in ("mermaid", "nginx"):
        app.add_lexer(language, Unhighlighted)
