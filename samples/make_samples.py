#!/usr/bin/python3
"""Makes the sample pages beside this file: pages of text as a scanner delivers them, skewed, on a dark ground, with
punch holes and dust. Needs Debian's python3-pil and fonts-dejavu-core. The same files come out at every run."""
import math
import pathlib
import random

from PIL import Image, ImageChops, ImageDraw, ImageFilter, ImageFont

HERE = pathlib.Path(__file__).resolve().parent
FONTS = pathlib.Path("/usr/share/fonts/truetype/dejavu")
A5_MM = (148, 210)
OVERSAMPLING = 2

LETTER = """The harbour office has moved the tide tables to the new shelf beside the window. Boats that leave before
six find the keys in the tin under the bench; boats that leave later ask for them at the desk. Please write the time
of your return in the grey book, also when it is late and nobody is there to read it.

The lamp on the second pier is dark since Tuesday. Until it burns again the old one stands on the wall, and it is
lit by whoever comes first. Oil is in the shed. The winter ropes are counted: forty-one are good, seven go to the
school for the rowing class, and three are past mending.

We thank all who carried stones after the storm. The path is dry again as far as the third gate."""

REPORT = """Water was measured at nine wells between April and June. The mean level fell by 14 cm, less than in the
two years before. Wells 3 and 7 stood still; at well 5 the gauge was read from the wrong side for a week, and those
readings are left out.

The pump at well 8 ran for 212 hours. Its filter was cleaned twice, and each time the yield rose by a fifth and sank
back within ten days. We advise a coarser sand."""

CATALOGUE = """Glazed jug, blue over ochre, about 1890. Height 24 cm. The handle is mended with lead. Bought in the
market hall together with the bowl on the next page."""


def font(name, points, dots):
    return ImageFont.truetype(str(FONTS / name), round(points * dots / 72))


class Sheet:
    """A sheet of paper, measured in millimetres."""

    def __init__(self, mode, dpi, paper):
        self.dots = dpi * OVERSAMPLING
        self.image = Image.new(mode, (self.px(A5_MM[0]), self.px(A5_MM[1])), paper)
        self.draw = ImageDraw.Draw(self.image)

    def px(self, millimetres):
        return round(millimetres * self.dots / 25.4)

    def text(self, x, y, text, face, ink):
        self.draw.text((self.px(x), self.px(y)), text, font=face, fill=ink)

    def paragraphs(self, left, top, right, text, face, ink, leading=5.2):
        y = top
        for paragraph in text.split("\n\n"):
            line = ""
            for word in paragraph.split():
                longer = f"{line} {word}".strip()
                if self.draw.textlength(longer, font=face) > self.px(right - left):
                    self.text(left, y, line, face, ink)
                    y += leading
                    line = word
                else:
                    line = longer
            self.text(left, y, line, face, ink)
            y += leading * 1.7
        return y

    def hole(self, x, y, diameter, ink):
        r = diameter / 2
        self.draw.ellipse([self.px(x - r), self.px(y - r), self.px(x + r), self.px(y + r)], fill=ink)

    def scanned(self, degrees, ground, shift_mm=(0, 0)):
        """The sheet turned on the scanner's glass, seen through a window of its own size."""
        turned = self.image.rotate(degrees, Image.Resampling.BICUBIC, fillcolor=ground,
                                   translate=(self.px(shift_mm[0]), self.px(shift_mm[1])))
        size = (turned.width // OVERSAMPLING, turned.height // OVERSAMPLING)
        return turned.resize(size, Image.Resampling.BOX)


def scatter(image, chance, count, ink, largest=1):
    draw = ImageDraw.Draw(image)
    for _ in range(count):
        x, y = chance.randrange(image.width), chance.randrange(image.height)
        size = chance.randrange(largest)
        draw.rectangle([x, y, x + size, y], fill=ink)


def letter():
    dpi, chance = 200, random.Random(1)
    sheet = Sheet("L", dpi, 255)
    sheet.text(28, 18, "Notice to all boats", font("DejaVuSerif-Bold.ttf", 16, sheet.dots), 0)
    body = font("DejaVuSerif.ttf", 10, sheet.dots)
    end = sheet.paragraphs(28, 34, 134, LETTER, body, 0)
    sheet.text(28, end + 8, "The harbour office, 4 November", font("DejaVuSerif-Italic.ttf", 10, sheet.dots), 0)
    for y in (65, 145):
        sheet.hole(12, y, 6, 0)
    page = sheet.scanned(-2.3, 0, shift_mm=(3, 0)).point(lambda value: 255 * (value > 128)).convert("1")
    scatter(page, chance, 700, 0)
    page.save(HERE / "letter-1bit.tif", compression="group4", dpi=(dpi, dpi))


def report():
    dpi, chance = 150, random.Random(2)
    sheet = Sheet("L", dpi, 232)
    sheet.text(22, 18, "Wells of the lower valley", font("DejaVuSans-Bold.ttf", 15, sheet.dots), 40)
    end = sheet.paragraphs(22, 32, 132, REPORT, font("DejaVuSans.ttf", 9.5, sheet.dots), 48)
    levels = [62, 58, 61, 49, 44, 47, 40, 37]
    for i, level in enumerate(levels):
        x = 28 + 12 * i
        sheet.draw.rectangle([sheet.px(x), sheet.px(end + 75 - level), sheet.px(x + 8), sheet.px(end + 75)], fill=120)
        sheet.text(x + 1.5, end + 76, f"{i + 1}", font("DejaVuSans.ttf", 8, sheet.dots), 48)
    sheet.draw.line([sheet.px(24), sheet.px(end + 75), sheet.px(126), sheet.px(end + 75)], fill=48, width=5)
    page = sheet.scanned(1.7, 28, shift_mm=(-2, 0)).filter(ImageFilter.GaussianBlur(0.6))
    # Steps of 8 and little noise: real grain would not compress, and a sample is to be small.
    page = page.point(lambda value: min(255, value // 8 * 8 + 4))
    scatter(page, chance, 5000, 220)
    scatter(page, chance, 250, 0)
    page.save(HERE / "report-grey.png", dpi=(dpi, dpi), optimize=True)


def picture(width, height):
    """A jug on a table, drawn with soft light."""
    image = Image.new("RGB", (width, height))
    pixels = image.load()
    for y in range(height):
        for x in range(width):
            u, v = x / width, y / height
            if v > 0.72:
                shade = 0.75 - 0.3 * abs(u - 0.4)
                pixels[x, y] = (round(150 * shade), round(104 * shade), round(66 * shade))
            else:
                shade = 0.9 - 0.35 * math.hypot(u - 0.25, v - 0.2)
                pixels[x, y] = (round(196 * shade), round(204 * shade), round(190 * shade))
            middle = 0.52
            radius = 0.17 * math.sin(min(math.pi, max(0.0, (v - 0.1) / 0.72 * math.pi))) ** 0.6 + 0.03
            if 0.16 < v < 0.84 and abs(u - middle) < radius:
                light = max(0.15, 1 - ((u - middle) / radius + 0.35) ** 2)
                base = (38, 78, 150) if v < 0.6 else (190, 130, 52)
                pixels[x, y] = tuple(round(value * (0.35 + 0.65 * light)) for value in base)
    return image.filter(ImageFilter.GaussianBlur(2))


def catalogue():
    dpi = 150
    sheet = Sheet("RGB", dpi, (243, 236, 220))
    sheet.text(24, 18, "Jugs and bowls", font("DejaVuSerif-Bold.ttf", 16, sheet.dots), (120, 40, 30))
    art = picture(460, 520).resize((sheet.px(92), sheet.px(104)), Image.Resampling.BICUBIC)
    sheet.image.paste(art, (sheet.px(28), sheet.px(34)))
    sheet.paragraphs(28, 146, 122, CATALOGUE, font("DejaVuSerif.ttf", 10, sheet.dots), (50, 40, 40))
    sheet.text(70, 196, "17", font("DejaVuSerif.ttf", 10, sheet.dots), (50, 40, 40))
    page = sheet.scanned(3.1, (24, 22, 26), shift_mm=(1, 0))
    noise = Image.frombytes("L", page.size, random.Random(3).randbytes(page.width * page.height))
    grain = noise.filter(ImageFilter.GaussianBlur(1)).point(lambda value: (value - 96) // 8)
    page = ImageChops.subtract(page, Image.merge("RGB", [grain] * 3))
    page.save(HERE / "catalogue-colour.jpg", quality=70, dpi=(dpi, dpi))


if __name__ == "__main__":
    letter()
    report()
    catalogue()
