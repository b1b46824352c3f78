#!/usr/bin/env python3
"""Turns a WiX fragment into an include file that wixl can read.

wixl (msitools 0.101) takes no Binary or CustomAction inside a Fragment, but
its preprocessor takes them from an <?include?> inside the Product. The
fragment stays the one source: this copies its body, comments and all, into
an <Include> of the same namespace.
Usage: wixl_include.py FRAGMENT.wxs OUT.wxi
"""
import sys

WIX_NAMESPACE = "http://schemas.microsoft.com/wix/2006/wi"


def include_text(fragment_text):
    start = fragment_text.index("<Fragment>") + len("<Fragment>")
    end = fragment_text.rindex("</Fragment>")
    return ('<?xml version="1.0" encoding="utf-8"?>\n<Include xmlns="%s">%s</Include>\n'
            % (WIX_NAMESPACE, fragment_text[start:end]))


def main():
    with open(sys.argv[1], encoding="utf-8") as f:
        text = include_text(f.read())
    with open(sys.argv[2], "w", encoding="utf-8") as f:
        f.write(text)


if __name__ == "__main__":
    main()
