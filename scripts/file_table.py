#!/usr/bin/env python3
"""Writes docs/file-table.md: page files that other programs make, each read by rastrel and compared with what that
program, or one of its kind, reads of it. Ends with 1 where a line does not agree.

    apt-get install imagemagick libtiff-tools netpbm libvips-tools img2pdf ocrmypdf ghostscript poppler-utils qpdf
    scripts/file_table.py build/release/tools/rastrel            files lie in a temporary folder
    scripts/file_table.py build/release/tools/rastrel FOLDER     files stay in FOLDER, the table goes to standard output
    scripts/file_table.py build/release/tools/rastrel FOLDER im-lab.tif ...   only these files
"""
import json
import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

RASTREL = Path(sys.argv[1]).resolve()
TABLE = Path(__file__).resolve().parents[1] / "docs" / "file-table.md"
DPI = 200
PROFILE = "/usr/share/color/icc/ghostscript/default_rgb.icc"

# Why a program's pixels may differ by a few of 255 from ours.
ROUNDED = "another rounding of 16 bits"
MIXED = "another rounding where alpha is laid over white"
INKS = "another rounding where ideal inks are mixed"
LAB = "its codes for a and b lie half a step beside those of TIFF"
FEW = "it repeats the high bits of 5 or 6 where they become 8"
LOSSY = "another rounding in the colours of JPEG"


def run(command):
    return subprocess.run(command, shell=True, check=True, capture_output=True, timeout=300).stdout


def pnm(data):
    """Width, height and rows of red, green and blue of a PNM file."""
    head = re.match(rb"(P[456])\s+(?:#.*\n\s*)*(\d+)\s+(\d+)\s", data)
    kind, width, height = head[1], int(head[2]), int(head[3])
    at = head.end()
    if kind == b"P4":
        stride = (width + 7) // 8
        out = bytearray()
        for y in range(height):
            row = data[at + y * stride: at + (y + 1) * stride]
            bits = bin(int.from_bytes(row, "big") | 1 << stride * 8)[3:3 + width]
            out += b"".join(b"\0\0\0" if bit == "1" else b"\xff\xff\xff" for bit in bits)
        return width, height, bytes(out)
    most = re.match(rb"(\d+)\s", data[at:])
    assert int(most[1]) == 255, "samples of 16 bits"
    body = data[at + most.end():]
    if kind == b"P5":
        body = bytes(value for byte in body[:width * height] for value in (byte, byte, byte))
    return width, height, body[:width * height * 3]


def difference(one, other):
    if one[:2] != other[:2]:
        return "%d x %d, not %d x %d" % (*one[:2], *other[:2])
    return max((abs(a - b) for a, b in zip(one[2], other[2])), default=0) if one[2] != other[2] else 0


# How a program of the kind that made a file reads it. {f} is the file.
MAGICK = "convert '{f}[0]' -background white -alpha remove -colorspace sRGB -depth 8 ppm:-"
VIPS = "vips colourspace '{f}' y.v srgb && vips cast y.v z.v uchar && vips ppmsave z.v z.ppm && cat z.ppm"
VIPS_ALPHA = "vips flatten '{f}' z.v --background 255 && vips ppmsave z.v z.ppm && cat z.ppm"
VIPS_PROFILE = ("vips icc_transform '{f}' z.v srgb --embedded --intent relative --black-point-compensation && "
                "vips ppmsave z.v z.ppm && cat z.ppm")
TIFF = "tifftopnm '{f}'"
PDF = "rm -rf ref; mkdir ref; pdfimages -png -f 1 -l 1 {f} ref/im; convert ref/im-000.png -depth 8 ppm:-"
# Without what the file says of the calibration of its colours.
PDF_SAMPLES = "printf 'P6 203 151 255\\n'; qpdf --show-object=7 --filtered-stream-data {f}"
PDF_JPEG = "rm -rf ref; mkdir ref; pdfimages -all -f 1 -l 1 {f} ref/im; convert ref/im-000.jpg -depth 8 ppm:-"
DRAWN = "pdftoppm -r 300 -f 1 -l 1 -singlefile {f}"


class Case:
    def __init__(self, program, name, command, reads, most, why, dpi, tags):
        self.program, self.name, self.command, self.reads = program, name, command, reads
        self.most, self.why = most, why  # the most that a sample may differ by
        self.dpi = dpi                   # None: the file does not say
        self.tags = set(tags.split())    # that the file has been given


CASES = []


def add(program, name, command, reads=MAGICK, off=(0, ""), dpi=DPI, tags=""):
    CASES.append(Case(program, name, command, reads, *off, dpi, tags))


def sources():
    """The pictures that everything is made of, by our own means: no format that is tested lies under them."""
    width, height = 203, 151
    grey = bytearray()
    colour = bytearray()
    for y in range(height):
        for x in range(width):
            paper = 235 - (x * 40 // width)
            ink = (x // 9 + y // 13) % 3 == 0 and (x * y) % 7 < 4
            grey.append(30 + y % 20 if ink else paper)
            colour += bytes((40, 60 + x % 90, 140) if ink else (paper, paper - 8, 200 - y))
    Path("grey.pgm").write_bytes(b"P5 %d %d 255\n" % (width, height) + grey)
    Path("rgb.ppm").write_bytes(b"P6 %d %d 255\n" % (width, height) + colour)
    Path("page.xmp").write_text(
        '<x:xmpmeta xmlns:x="adobe:ns:meta/"><rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#">'
        '<rdf:Description rdf:about="" xmlns:xmp="http://ns.adobe.com/xap/1.0/" xmp:Label="Page"/></rdf:RDF></x:xmpmeta>')
    rows = bytearray()
    for y in range(height):
        bits = "".join("1" if grey[y * width + x] < 128 else "0" for x in range(width))
        bits += "0" * (-width % 8)
        rows += int(bits, 2).to_bytes(len(bits) // 8, "big")
    Path("bw.pbm").write_bytes(b"P4 %d %d\n" % (width, height) + rows)
    deep = bytearray()
    for y in range(height):
        for x in range(width):
            deep += ((x * 257 + y * 87) % 65536).to_bytes(2, "big")
    Path("grey16.pgm").write_bytes(b"P5 %d %d 65535\n" % (width, height) + deep)
    at = f"-units PixelsPerInch -density {DPI}"
    run(f"convert grey.pgm {at} grey.png; convert rgb.ppm {at} rgb.png; convert bw.pbm {at} -define png:bit-depth=1 bw.png;"
        f"convert rgb.ppm {at} -colors 16 -type Palette pal.png; convert grey16.pgm {at} grey16.png;"
        f"convert rgb.ppm {at} -alpha set -channel A -evaluate set 60% rgba.png; convert rgb.ppm {at} -quality 90 rgb.jpg;"
        f"convert grey.pgm {at} -quality 90 grey.jpg; convert bw.pbm {at} -compress Group4 bw.tif;"
        f"convert rgb.ppm {at} -compress None rgb.tif; convert grey.pgm {at} -compress None grey.tif;"
        f"convert rgb.ppm {at} -colors 16 -type Palette -compress None pal.tif;"
        f"printf '(Times-Roman) findfont 30 scalefont setfont 40 60 moveto (Drawn) show showpage' > text.ps")


# What may differ by the kind of the picture.
OFF = {"grey16": (1, ROUNDED), "rgba": (1, MIXED)}
SAME = (0, "")


def list_cases():
    at = f"-units PixelsPerInch -density {DPI}"
    im = "ImageMagick"
    # ---- TIFF
    for kind, compressions in (("bw", "None LZW Zip RLE Group4 Fax"), ("grey", "None LZW Zip RLE JPEG ZSTD WebP"),
                               ("rgb", "None LZW Zip RLE JPEG ZSTD"), ("pal", "None LZW Zip RLE"), ("grey16", "None LZW Zip"),
                               ("rgba", "None Zip")):
        for compression in compressions.split():
            if (kind, compression) == ("grey", "WebP"):
                continue
            add(im, f"im-{kind}-{compression}.tif", f"convert {kind}.png {at} -compress {compression} {{f}}",
                off=OFF.get(kind, SAME))
    add(im, "im-cmyk.tif", f"convert rgb.png {at} -colorspace CMYK -compress LZW {{f}}", off=(2, INKS))
    add(im, "im-lab.tif", f"convert rgb.png {at} -colorspace Lab -compress LZW {{f}}", off=(11, LAB))
    add(im, "im-tiles.tif", f"convert rgb.png {at} -define tiff:tile-geometry=64x64 -compress Zip {{f}}")
    add(im, "im-planes.tif", f"convert rgb.png {at} -interlace plane -compress None {{f}}")
    add(im, "im-msb.tif", f"convert rgb.png {at} -endian MSB -compress LZW {{f}}")
    add(im, "im-white0.tif", f"convert grey.png {at} -define quantum:polarity=min-is-white -compress LZW {{f}}")
    add(im, "im-fill.tif", f"convert bw.png {at} -define tiff:fill-order=lsb -compress Group4 {{f}}")
    add(im, "im-big.tif", f"convert rgb.png {at} -compress Zip TIFF64:{{f}}")
    add(im, "im-cm.tif", "convert rgb.png -units PixelsPerCentimeter -density 80 -compress Zip {f}", dpi=203.2)
    add(im, "im-float.tif", f"convert grey16.png {at} -depth 32 -define quantum:format=floating-point -compress Zip {{f}}", off=(1, ROUNDED))
    add(im, "im-turned.tif", f"convert rgb.png {at} -orient RightTop -compress Zip {{f}}",
        "convert '{f}' -auto-orient -depth 8 ppm:-")
    # ---- PNG
    for kind in ("bw", "grey", "rgb", "pal", "grey16", "rgba"):
        add(im, f"im-{kind}.png", f"convert {kind}.png {at} {{f}}", off=OFF.get(kind, SAME))
    add(im, "im-adam7.png", f"convert rgb.png {at} -interlace PNG {{f}}")
    add(im, "im-rgb16.png", f"convert rgb.png {at} -depth 16 -define png:bit-depth=16 {{f}}", off=(1, ROUNDED))
    # ---- JPEG
    for kind, more in (("grey", ""), ("rgb", ""), ("rgb-444", "-sampling-factor 4:4:4"), ("rgb-prog", "-interlace JPEG"),
                       ("rgb-q30", "-quality 30"), ("rgb-arith", "-define jpeg:arithmetic-coding=true")):
        add(im, f"im-{kind}.jpg", f"convert {kind.split('-')[0]}.png {at} {more} {{f}}")
    add(im, "im-cmyk.jpg", f"convert rgb.png {at} -colorspace CMYK {{f}}", off=(2, INKS))
    add(im, "im-turned.jpg", f"convert rgb.png {at} -orient RightTop {{f}}", "convert '{f}' -auto-orient -depth 8 ppm:-")
    # ---- BMP
    for kind in ("bw", "grey", "rgb", "pal", "rgba"):
        for version in ("", "2", "3"):
            if kind == "rgba" and version:
                continue
            add(im, f"im-{kind}{version}.bmp", f"convert {kind}.png {at} BMP{version}:{{f}}",
                off=OFF.get(kind, SAME), dpi=None if version == "2" else DPI)
    add(im, "im-rle.bmp", f"convert pal.png {at} -compress RLE BMP3:{{f}}")
    add(im, "im-565.bmp", f"convert rgb.png {at} -define bmp:subtype=RGB565 {{f}}", off=(1, FEW))
    # ---- what goes beside the pixels
    for ending in ("tif", "png", "jpg"):
        add(im, f"im-icc.{ending}", f"convert rgb.png {at} -profile {PROFILE} {{f}}", f"convert {{f}} -depth 8 ppm:-", tags="icc")
        add(im, f"im-description.{ending}", f"convert rgb.png {at} -set comment 'A page' {{f}}",
            tags="description" if ending == "tif" else "")
        add(im, f"im-xmp.{ending}", f"convert rgb.png {at} -profile xmp:page.xmp {{f}}", tags="xmp")
    add(im, "im-icc.webp", f"convert rgb.png -profile {PROFILE} -define webp:lossless=true {{f}}", "convert {f} -depth 8 ppm:-",
        tags="icc", dpi=None)
    add("libtiff", "lt-tags.tif", "cp rgb.tif {f}; for tag in 269 270 271 272 285 315 33432; do tiffset -s $tag 'Words' {f}; done;"
        "tiffset -s 306 '2001:02:03 04:05:06' {f}", TIFF,
        tags="document description make model page-name artist copyright date")
    add("libtiff", "lt-unequal.tif", "cp rgb.tif {f}; tiffset -s 283 100 {f}", TIFF, dpi=[200, 100])
    add("netpbm", "np-text.png", "printf 'Title Page\\nAuthor Me\\nCopyright None\\nDescription Words\\n' > words;"
        "pnmtopng -text words -size '7874 7874 1' rgb.ppm > {f}", "pngtopnm {f}", tags="document artist copyright description")
    add("img2pdf", "ip-words.pdf", "img2pdf --title Page --author Me --subject Words rgb.png -o {f} 2>/dev/null", PDF,
        tags="document artist description")
    add("libvips", "vi-icc.jp2", f"vips copy im-icc.png '{{f}}[lossless]'", "convert im-icc.png -depth 8 ppm:-", dpi=None)
    # ---- the rarer ones
    for kind in ("grey", "rgb"):
        add(im, f"im-{kind}.jp2", f"convert {kind}.png -quality 0 {{f}}", dpi=None)
        add(im, f"im-{kind}.j2k", f"convert {kind}.png -quality 0 {{f}}", dpi=None)
        add(im, f"im-{kind}.webp", f"convert {kind}.png -define webp:lossless=true {{f}}", dpi=None)
    add(im, "im-lossy.webp", "convert rgb.png -quality 80 {f}", VIPS, dpi=None)
    add(im, "im-rgba.webp", "convert rgba.png -define webp:lossless=true {f}", off=OFF["rgba"], dpi=None)
    add(im, "im-pal.gif", "convert pal.png {f}", dpi=None)
    add(im, "im-bw.gif", "convert bw.png {f}", dpi=None)
    # ---- PNM
    for kind, ending in (("bw", "pbm"), ("grey", "pgm"), ("rgb", "ppm"), ("rgb", "pam"), ("grey", "pnm")):
        add(im, f"im-{kind}.{ending}", f"convert {kind}.png {{f}}", dpi=None)
        if ending != "pam":
            add(im, f"im-{kind}-plain.{ending}", f"convert {kind}.png -compress none {{f}}", dpi=None)
    # ---- libtiff's tools
    lt = "libtiff"
    for kind, options in (("bw", "none lzw zip packbits g3 g3:1d g3:2d g3:fill g4 lzma zstd"),
                          ("rgb", "none lzw lzw:2 zip zip:2 packbits jpeg:r jpeg lzma zstd webp:100"), ("grey", "jpeg lzw zip:2"),
                          ("pal", "lzw zip packbits")):
        for option in options.split():
            lossy = option.startswith(("jpeg", "webp"))
            add(lt, f"lt-{kind}-{option.replace(':', '-')}.tif", f"tiffcp -r 16 -c {option} {kind}.tif {{f}}", TIFF if not lossy else MAGICK,
                off=(2, LOSSY) if lossy else SAME)
    for name, options in (("tiles", "-t -w 64 -l 64"), ("tiles-zip", "-t -w 32 -l 48 -c zip"), ("planes", "-p separate -c zip"),
                          ("planes-tiles", "-p separate -t -w 64 -l 64"), ("big-endian", "-B -c lzw"), ("bigtiff", "-8 -c zip"),
                          ("rows", "-r 7 -c lzw")):
        add(lt, f"lt-{name}.tif", f"tiffcp {options} rgb.tif {{f}}", TIFF if "planes" not in name else MAGICK)
    add(lt, "lt-lsb.tif", "tiffcp -f lsb2msb -c g4 bw.tif {f}", TIFF)
    add(lt, "lt-dither.tif", "tiffdither grey.tif {f}", TIFF)
    add(lt, "lt-median.tif", "tiffmedian -C 32 rgb.tif {f}", TIFF)
    add(lt, "lt-bw.tif", "tiff2bw rgb.tif {f}", TIFF)
    for kind, option in (("bw", ""), ("grey", "-z"), ("bw", "-d")):
        add(lt, f"lt-{kind}{option.replace(' ', '')}.pdf", f"tiff2pdf {option} -o {{f}} {kind}.tif", PDF)
    add(lt, "lt-rgb-z.pdf", "tiff2pdf -z -o {f} rgb.tif", PDF_SAMPLES)
    add(lt, "lt-rgb-j.pdf", "tiff2pdf -j -q 90 -o {f} rgb.tif", PDF_JPEG)
    # ---- netpbm
    np = "netpbm"
    for option in ("g4", "g3", "packbits", "none"):
        add(np, f"np-bw-{option}.tif", f"pamtotiff -{option} -xresolution {DPI} -yresolution {DPI} bw.pbm > {{f}}", TIFF)
    for option in ("lzw", "flate", "packbits"):
        add(np, f"np-rgb-{option}.tif", f"pamtotiff -truecolor -{option} -xresolution {DPI} -yresolution {DPI} rgb.ppm > {{f}}", TIFF)
    for kind, more in (("bw.pbm", ""), ("grey.pgm", ""), ("rgb.ppm", ""), ("rgb.ppm", "-interlace"), ("grey16.pgm", "")):
        add(np, f"np-{kind[:-4]}{more}.png", f"pnmtopng {more} -size '7874 7874 1' {kind} > {{f}}",
            "pngtopnm {f} | pamdepth 255", off=(1, ROUNDED) if "16" in kind else SAME)
    for more in ("", "-progressive", "-optimize", "-grayscale"):
        add(np, f"np{more}.jpg", f"pnmtojpeg {more} -density={DPI}x{DPI}dpi rgb.ppm > {{f}}", "jpegtopnm {f}")
    add(np, "np.bmp", "ppmtobmp rgb.ppm > {f}", "bmptopnm {f}", dpi=None)
    add(np, "np-os2.bmp", "ppmtobmp -os2 rgb.ppm > {f}", "bmptopnm {f}", dpi=None)
    add(np, "np.gif", "pnmquant 64 rgb.ppm | pamtogif > {f}", "giftopnm {f}", dpi=None)
    # ---- libvips
    vi = "libvips"
    for kind, options in (("bw", ("compression=ccittfax4,bitdepth=1", "bitdepth=1", "bitdepth=1,miniswhite")),
                          ("grey", ("compression=deflate,predictor=horizontal", "bitdepth=4", "bitdepth=2", "compression=zstd")),
                          ("rgb", ("compression=lzw,tile", "compression=jpeg,Q=90", "compression=webp,lossless", "bigtiff",
                                   "tile,pyramid,compression=jpeg")),
                          ("rgba", ("compression=deflate",)), ("grey16", ("compression=lzw",))):
        for option in options:
            add(vi, f"vi-{kind}-{re.sub('[^a-z0-9]+', '-', option.lower())}.tif",
                f"vips copy {kind}.png '{{f}}[{option}]' ", VIPS_ALPHA if kind == "rgba" else VIPS,
                off=(1, LOSSY) if "jpeg" in option else OFF.get(kind, SAME))
    for kind, options in (("rgb", ("", "interlace", "palette", "bitdepth=16")), ("grey", ("bitdepth=4",)), ("bw", ("bitdepth=1",))):
        for option in options:
            add(vi, f"vi-{kind}-{option or 'plain'}.png", f"vips copy {kind}.png '{{f}}[{option}]'", VIPS,
                off=(1, ROUNDED) if "16" in option else SAME)
    for option in ("Q=80", "interlace", "subsample-mode=off", "optimize-coding"):
        add(vi, f"vi-{option}.jpg", f"vips copy rgb.png '{{f}}[{option}]'", VIPS)
    for kind in ("grey", "rgb"):
        add(vi, f"vi-{kind}.jp2", f"vips copy {kind}.png '{{f}}[lossless]'", VIPS, dpi=None)
        add(vi, f"vi-{kind}.jxl", f"vips copy {kind}.png '{{f}}[lossless]'", VIPS, dpi=None)
        add(vi, f"vi-{kind}.heic", f"vips copy {kind}.png '{{f}}[lossless]'", VIPS)
    add(vi, "vi-grey16.jp2", "vips copy grey16.png '{f}[lossless]'", VIPS, off=OFF["grey16"], dpi=None)
    add(vi, "vi-rgb.avif", "vips copy rgb.png '{f}[lossless,compression=av1]'", VIPS)
    add(vi, "vi-rgb.webp", "vips copy rgb.png '{f}[lossless]'", VIPS)
    add(vi, "vi-rgb.gif", "vips copy rgb.png {f}", VIPS, dpi=None)
    # ---- img2pdf and OCRmyPDF
    for source in ("bw.png", "grey.png", "rgb.png", "pal.png", "rgb.jpg", "grey.jpg", "bw.tif", "im-cmyk.jpg", "im-grey.jp2"):
        add("img2pdf", f"ip-{source}.pdf", f"img2pdf {source} -o {{f}} 2>/dev/null", PDF_JPEG if "cmyk" in source else PDF, off=(2, INKS) if "cmyk" in source else SAME,
            dpi=96 if "jp2" in source else DPI)
    add("img2pdf", "ip-turned.pdf", "img2pdf --rotation=ifvalid im-turned.jpg -o {f} 2>/dev/null",
        "convert im-turned.jpg -auto-orient -depth 8 ppm:-")
    add("img2pdf", "ip-margin.pdf", "img2pdf --border 1mm rgb.jpg -o {f} 2>/dev/null", PDF)
    add("img2pdf", "ip-wide-margin.pdf", "img2pdf --border 1cm rgb.jpg -o {f} 2>/dev/null", DRAWN, dpi=300)
    for kind in ("pdf", "pdfa"):
        add("OCRmyPDF", f"oc-{kind}.pdf", f"ocrmypdf --output-type {kind} --optimize 0 ip-grey.png.pdf {{f}}", PDF)
    # ---- Ghostscript
    gs = "gs -q -dNOPAUSE -dBATCH -dSAFER -g400x300"
    for device, ending in (("tiffg4", "tif"), ("tiffg32d", "tif"), ("tiffg3", "tif"), ("tiffcrle", "tif"), ("tifflzw", "tif"),
                           ("tiffpack", "tif"), ("tiffgray", "tif"), ("tiff24nc", "tif"), ("tiff32nc", "tif"), ("tiff12nc", "tif"),
                           ("pngmono", "png"), ("pnggray", "png"), ("png16m", "png"), ("png256", "png"), ("png16", "png"),
                           ("pngalpha", "png"), ("jpeg", "jpg"), ("jpeggray", "jpg"), ("bmpmono", "bmp"), ("bmpgray", "bmp"),
                           ("bmp16m", "bmp"), ("bmp256", "bmp"), ("pbmraw", "pbm"), ("pgmraw", "pgm"), ("ppmraw", "ppm")):
        told = DPI if ending in ("tif", "png", "jpg") else None
        if ending == "bmp":
            told = DPI
        add("Ghostscript", f"gs-{device}.{ending}", f"{gs} -r{DPI} -sDEVICE={device} -sOutputFile={{f}} text.ps",
            VIPS_PROFILE if device == "tiff32nc" else MAGICK, dpi=told)
    for device in ("pdfimage8", "pdfimage24"):
        add("Ghostscript", f"gs-{device}.pdf", f"{gs} -r{DPI} -sDEVICE={device} -sOutputFile={{f}} text.ps", PDF)
    add("Ghostscript", "gs-text.pdf", "gs -q -dNOPAUSE -dBATCH -dSAFER -sDEVICE=pdfwrite -g2000x1500 -sOutputFile={f} text.ps",
        DRAWN, dpi=300)


def ours(name, output):
    """The record of writing the file's first page in another format."""
    for old in Path(".").glob("out*"):
        old.unlink()
    done = subprocess.run([RASTREL, "apply", name, "-o", output, "--json"], capture_output=True, text=True, timeout=300)
    if done.returncode != 0:
        raise ValueError((done.stdout + done.stderr).strip().split("\n")[-1][:160])
    first = Path(output.replace(".", "-001."))
    if first.exists():
        first.rename(output)
    return json.loads(done.stdout.split("\n")[0])


def info(name):
    return json.loads(run(f"'{RASTREL}' info --json '{name}'").split(b"\n")[0])


def profiles(name, kind):
    """A block of metadata as ImageMagick finds it."""
    done = subprocess.run(["convert", name + "[0]", kind + ":-"], capture_output=True, timeout=300)
    return done.stdout if done.returncode == 0 else b""


def told(record):
    # That a PPM file has no place for something is no matter of reading.
    return [line for line in record["reduced"] if "PPM files have no place" not in line]


def pixels_of(case):
    expected = pnm(run(case.reads.replace("{f}", case.name)))
    record = ours(case.name, "out.ppm")
    off = difference(pnm(Path("out.ppm").read_bytes()), expected)
    if off == 0:
        return "same", told(record)
    isNear = isinstance(off, int) and off <= case.most
    return f"within {off}: {case.why}" if isNear else f"DIFFER: {off}", told(record)


def resolution_of(case, record):
    found = [record["dpi"], record.get("dpiDown", record["dpi"])]
    wanted = case.dpi if isinstance(case.dpi, list) else [case.dpi or 0] * 2
    text = "not said" if found == [0, 0] else " x ".join("%g" % one for one in (found if found[0] != found[1] else found[:1]))
    if "drawn" in "".join(record["reduced"]):  # at the usual resolution
        return "drawn at 300"
    return text if all(abs(a - b) < 0.6 for a, b in zip(found, wanted)) else "DIFFERS: " + text


def metadata_of(case, record):
    """What goes on into a TIFF file, which has a place for everything, and what is said of the rest."""
    made = ours(case.name, "out.tif")
    before, after = set(record["tags"]), set(info("out.tif")["tags"])
    lost = {tag for tag in before - after if not any(line.startswith(tag) for line in made["reduced"])}
    lost |= case.tags - before
    for kind in ("icc", "xmp"):
        block = profiles(case.name, kind)
        if block and block != profiles("out.tif", kind) and not any("to RGB" in line for line in told(record)):
            lost.add(kind)
    return ", ".join(sorted(before)) + (" LOST: " + ", ".join(sorted(lost)) if lost else "")


def row_of(case):
    try:
        record = info(case.name)
        pixels, reduced = pixels_of(case)
        cells = [pixels, resolution_of(case, record), metadata_of(case, record), "; ".join(reduced)]
    except Exception as error:  # one bad line must not hide the others
        cells = [f"FAILS: {error}", "", "", ""]
    return f"| {case.program} | `{case.name}` | " + " | ".join(cells) + " |"


def versions():
    def first(command):
        return run(command + " 2>&1 | head -1").decode().strip()
    return "; ".join([
        " ".join(first("convert -version").split()[1:3]), first("tiffinfo -h 2>&1 | grep -i libtiff").rstrip("."),
        "Netpbm " + first("pnmtopng -version 2>&1 | grep -o 'Version.*'"), first("vips --version"), first("img2pdf --version"),
        "OCRmyPDF " + first("ocrmypdf --version"), "Ghostscript " + first("gs --version")])


HEAD = """# Files of other programs

`scripts/file_table.py` makes these {count} files with other programs from a picture of 203 × 151 pixels, or a line of text,
reads each with `rastrel apply`, and compares it with what the program in the first column, or one of its kind, reads of it. This page
is what it writes; it ends with an error where a line does not agree.

- *pixels*: same, or by how much of 255 a sample differs at most and why. Pages of 16 bits and with alpha are compared as the pages
  of 8 bits that operations work on, alpha over white; PDF pages that are an image with that image as it is stored.
- *dots per inch*: agrees with what the program was told to write; "not said" where it writes none.
- *kept*: metadata that was found and is again found in a TIFF file that `rastrel apply` makes of the file (ICC and XMP also by
  ImageMagick, byte by byte).
- *told*: what `--json` lists as `"reduced"`.

Made with {versions}.

| program | file | pixels | dots per inch | kept | told |
|---|---|---|---|---|---|
"""


def main():
    keeps = len(sys.argv) > 2
    with tempfile.TemporaryDirectory() as temporary:
        folder = Path(sys.argv[2]) if keeps else Path(temporary)
        folder.mkdir(parents=True, exist_ok=True)
        os.chdir(folder)
        sources()
        list_cases()
        rows, missing = [], 0
        only = sys.argv[3:]
        # Some are made of others.
        for case in [case for case in CASES if not only or case.name in only]:
            try:
                run(case.command.replace("{f}", case.name))
            except subprocess.CalledProcessError as error:
                missing += 1
                print(f"not made: {case.name}: {error.stderr.decode(errors='replace')[-200:]}", file=sys.stderr)
                continue
            rows.append(row_of(case))
        text = HEAD.format(count=len(rows), versions=versions()) + "\n".join(rows) + "\n"
        os.chdir("/")
    wrong = [row for row in rows if re.search("DIFFER|FAILS|LOST", row)]
    print("\n".join(wrong), file=sys.stderr)
    print(f"{len(rows)} files, {len(wrong)} that do not agree, {missing} not made.", file=sys.stderr)
    if keeps:
        print(text, end="")
    else:
        TABLE.write_text(text)
    return 1 if wrong or missing else 0


sys.exit(main())
