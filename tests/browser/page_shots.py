#!/usr/bin/env python3
"""Pictures of the shipped pages for people to look at: both languages, three widths, light and dark, into build/pages/."""
import pathlib
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
BROWSER = shutil.which("chromium") or shutil.which("chromium-browser")
# A window is never narrower than some 500 pixels, a frame in it is.
FRAME = '<body style="margin:0"><iframe src="{page}" style="border:0;width:{width}px;height:{height}px"></iframe>'
SIZES = ((1280, 800), (768, 1024), (390, 844))


def main():
    if not BROWSER:
        sys.exit("no Chromium: cmake/install-packages.sh browser")
    target = ROOT / "build/pages"
    target.mkdir(parents=True, exist_ok=True)
    pages = sorted((ROOT / "rules/pages").glob("*.html"))
    if not pages:
        sys.exit("no pages")
    with tempfile.TemporaryDirectory(prefix="qiv-pages-") as folder:
        for page in pages:
            text = page.read_text("utf-8")
            for name, value in (("charset", "utf-8"), ("event_id", "4f1c09ab52d7e380"), ("secretrkey", "")):
                text = text.replace("{{" + name + "}}", value)
            file = pathlib.Path(folder) / page.name
            file.write_text(text, "utf-8")
            for width, height in SIZES:
                for theme in ("light", "dark"):
                    shoot(file, width, height, theme, target / f"{file.stem}-{width}-{theme}.png", folder)
    print(f"{len(list(target.glob('*.png')))} pictures in {target}")


def shoot(file, width, height, theme, picture, folder):
    frame = pathlib.Path(folder) / "frame.html"
    frame.write_text(FRAME.format(page=file.name, width=width, height=height), "utf-8")
    colours = ["--blink-settings=preferredColorScheme=0"] if theme == "dark" else []
    subprocess.run([BROWSER, "--headless", "--no-sandbox", "--disable-gpu", "--no-first-run", "--hide-scrollbars",
                    "--allow-file-access-from-files", f"--user-data-dir={folder}/profile", *colours,
                    f"--window-size={width},{height}", f"--screenshot={picture}", frame.as_uri()],
                   check=True, timeout=120, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


if __name__ == "__main__":
    main()
