"""Pictures and documents as people upload them, made in a folder."""
import random
import subprocess
import zipfile
import zlib

# Pictures with noise, by the library that PHP sites use.
PICTURES = """$i = imagecreatetruecolor(640, 420); mt_srand(7);
for ($n = 0; $n < 60000; ++$n) imagesetpixel($i, mt_rand(0, 639), mt_rand(0, 419), mt_rand(0, 0xffffff));
imagestring($i, 5, 20, 20, "O'Brien & <Sons>", 0xffffff);
imagepng($i, "$argv[1]/regatta.png"); imagejpeg($i, "$argv[1]/Anna's boat (1).jpg", 92); imagewebp($i, "$argv[1]/boat.webp"); imagegif($i, "$argv[1]/boat.gif");"""
XML = '<?xml version="1.0" encoding="UTF-8" standalone="yes"?>'


def office(path, parts):
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED) as file:
        file.writestr("[Content_Types].xml", f'{XML}<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types"/>')
        for name, text in parts.items():
            file.writestr(name, XML + text)


def pdf(path, text):
    stream = zlib.compress(b"BT /F1 12 Tf 72 720 Td (" + text.encode("latin-1", "replace") + b") Tj ET")
    objects = [b"<</Type/Catalog/Pages 2 0 R/OpenAction[3 0 R/Fit]>>", b"<</Type/Pages/Kids[3 0 R]/Count 1>>",
               b"<</Type/Page/Parent 2 0 R/MediaBox[0 0 595 842]/Contents 4 0 R/Annots[<</Type/Annot/Subtype/Link/A<</S/URI/URI(https://example.org/?a=1)>>>>]>>",
               b"<</Length %d/Filter/FlateDecode>>stream\n%s\nendstream" % (len(stream), stream)]
    path.write_bytes(b"%PDF-1.4\n" + b"".join(b"%d 0 obj%s endobj\n" % (n, o) for n, o in enumerate(objects, 1)) + b"trailer<</Root 1 0 R>>\n%%EOF\n")


def make(folder, posts):
    """Their paths; a picture first."""
    folder.mkdir()
    subprocess.run(["php", "-r", PICTURES, "--", str(folder)], check=True)
    text = "\n".join(post.text for post in posts)
    word = text.replace("&", "&amp;").replace("<", "&lt;")
    pdf(folder / "Minutes 12 March.pdf", text[:2000].replace("(", "\\(").replace(")", "\\)"))
    office(folder / "report (final).docx", {"word/document.xml": f"<w:document><w:t>{word}</w:t></w:document>"})
    office(folder / "budget.xlsx", {"xl/worksheets/sheet1.xml": f"<worksheet><f>SUM(B2:B3)</f><v>{word}</v></worksheet>"})
    with zipfile.ZipFile(folder / "site-backup.zip", "w", zipfile.ZIP_STORED) as file:
        file.writestr("index.html", "<html><body onload='start()'><script>alert('hello')</script></body></html>")
        file.writestr("texts.txt", text)
    (folder / "notes.txt").write_text("\n".join(post.text for post in posts if "`" not in post.text and "<" not in post.text), encoding="utf-8")
    (folder / "members.csv").write_text("id,name,note\n" + "\n".join(f'{i},"O\'Brien, {i}",1=1 or so' for i in range(200)), encoding="utf-8")
    (folder / "song.mp3").write_bytes(b"ID3\3\0\0\0\0\0\0" + b"".join(b"\xff\xfb\x90\0" + random.Random(i).randbytes(413) for i in range(900)))
    return [folder / "regatta.png"] + sorted(path for path in folder.iterdir() if path.name != "regatta.png")
