"""What cleaning did to a page whose truth is known. All of it is seen from the pixels before and after and the page's truth mask; what the
program says that it did plays no part, but for the angle."""
import numpy as np
from scipy import ndimage as nd

INK, PICTURE, OUTSIDE, HOLE, SPECK, DECOY, LARGE_SPECK = 1, 2, 4, 8, 16, 32, 64
EIGHT = np.ones((3, 3), int)


def grey(image):
    """Luma as floats; light print on dark is turned round by the caller."""
    return np.asarray(image.convert("L")).astype(np.float32)


class Ground:
    """The paper round every pixel: the mean of what is nothing but paper within 3 mm, and where there is none, of the nearest such place. Worked
    out for blocks of 4 x 4 pixels."""

    def __init__(self, truth, dpi):
        self.mm = dpi / 25.4
        self.shape = truth.shape
        apart = max(2, round(self.mm * 0.3)) * 2 + 1
        self.bare = ~nd.maximum_filter(truth != 0, apart)
        self.size = max(3, round(6 * self.mm / 4))
        self.weight = nd.uniform_filter(self.blocks(self.bare), self.size, mode="constant")
        known = self.weight > 0.02
        self.away, self.nearest = nd.distance_transform_edt(~known, return_indices=True) if known.any() else (None, None)

    def blocks(self, values):
        high, wide = (-self.shape[0]) % 4, (-self.shape[1]) % 4
        padded = np.pad(values.astype(np.float32), ((0, high), (0, wide)))
        return padded.reshape(padded.shape[0] // 4, 4, padded.shape[1] // 4, 4).mean((1, 3))

    def spread(self, blocks):
        return np.repeat(np.repeat(blocks, 4, 0), 4, 1)[:self.shape[0], :self.shape[1]]

    def of(self, values, mask=None):
        """The mean of `values` over bare paper, or over `mask` alone and only where there is any."""
        if mask is not None:
            weight = nd.uniform_filter(self.blocks(mask), self.size, mode="constant")
            return self.spread(nd.uniform_filter(self.blocks(np.where(mask, values, 0)), self.size, mode="constant") / np.maximum(weight, 0.02))
        if self.nearest is None:
            return np.full(self.shape, np.median(values), np.float32)
        mean = nd.uniform_filter(self.blocks(np.where(self.bare, values, 0)), self.size, mode="constant") / np.maximum(self.weight, 0.02)
        return self.spread(mean[tuple(self.nearest)])


def share(part, whole):
    return float(part) / float(whole) if whole else 0.0


def pieces(mask):
    labels, count = nd.label(mask, EIGHT)
    return labels, np.arange(1, count + 1)


class Judgement(dict):
    """Figures of one page by name."""


def judge_marks(truth, before, after, dpi):
    """Ink, pictures, surround, holes, specks, of a page that was cleaned without being turned."""
    mm = dpi / 25.4
    ground = Ground(truth, dpi)
    paper_in, paper_out = ground.of(before), ground.of(after)
    contrast_in, contrast_out = paper_in - before, paper_out - after
    figures = Judgement()

    ink = (truth & INK) != 0
    usual = np.median(contrast_in[ink]) if ink.any() else 0
    ink &= contrast_in > 0.35 * usual
    lost = ink & (contrast_out < 0.5 * contrast_in)
    figures["ink"], figures["inkLost"] = int(ink.sum()), int(lost.sum())
    if ink.any():
        labels, all_pieces = pieces(ink)
        sizes, gone = nd.sum_labels(ink, labels, all_pieces), nd.sum_labels(lost, labels, all_pieces)
        boxes = nd.find_objects(labels)
        extent = np.array([max(b[0].stop - b[0].start, b[1].stop - b[1].start) for b in boxes])
        # Smaller than any full stop are crumbs of broken strokes.
        crumbs = sizes < (0.2 * mm) ** 2
        dots = (extent <= max(2, 0.75 * mm)) & ~crumbs
        figures["crumbs"], figures["crumbsLost"] = int(crumbs.sum()), int((crumbs & (gone > 0.5 * sizes)).sum())
        figures["pieces"], figures["piecesLost"] = len(sizes), int((gone > 0.5 * sizes).sum())
        figures["dots"], figures["dotsLost"] = int(dots.sum()), int((dots & (gone > 0.5 * sizes)).sum())
    figures["lostMask"] = lost

    picture = (truth & PICTURE) != 0
    changed = np.abs(after - before) > 12
    figures["picture"], figures["pictureChanged"] = int(picture.sum()), int((picture & changed).sum())

    outside = (truth & OUTSIDE) != 0
    deep = nd.binary_erosion(outside, EIGHT, border_value=1)
    differs = np.abs(after - paper_out) > 40
    differed = np.abs(before - paper_in) > 40
    figures["outside"], figures["outsideLeft"] = int((deep & differed).sum()), int((deep & differs & differed).sum())
    if deep.any():
        labels, all_pieces = pieces(deep & differs)
        areas = nd.sum_labels(deep & differs, labels, all_pieces) / (mm * mm) if len(all_pieces) else np.zeros(0)
        figures["slivers"] = int((areas > 1).sum())
    figures["leftMask"] = deep & differs

    dirty = nd.maximum_filter((truth & (OUTSIDE | HOLE | SPECK | LARGE_SPECK)) != 0, 2 * max(1, round(mm * 0.8)) + 1)
    sheet = ~dirty & ~outside
    painted = sheet & (np.abs(after - before) > 20)
    figures["sheet"], figures["sheetPainted"] = int(sheet.sum()), int(painted.sum())

    holes = (truth & HOLE) != 0
    labels, all_pieces = pieces(holes)
    figures["holes"] = figures["holesFound"] = 0
    for box, number in zip(nd.find_objects(labels), all_pieces):
        here = labels[box] == number
        if here.sum() < (1.5 * mm) ** 2:
            continue
        limit = max(14.0, 0.35 * float(np.mean(np.abs(contrast_in[box][here]))))
        figures["holes"] += 1
        figures["holesFound"] += int(np.mean(np.abs(contrast_out[box][here]) > limit) < 0.12)
    decoy = (truth & DECOY) != 0
    labels, all_pieces = pieces(decoy)
    if len(all_pieces):
        sizes, gone = nd.sum_labels(decoy, labels, all_pieces), nd.sum_labels(decoy & lost, labels, all_pieces)
        figures["decoys"], figures["decoysErased"] = len(sizes), int((gone > 0.2 * sizes).sum())

    for name, flag in (("specks", SPECK), ("largeSpecks", LARGE_SPECK)):
        mask = (truth & flag) != 0
        labels, all_pieces = pieces(mask)
        if not len(all_pieces):
            continue
        there = mask & (contrast_in > 40)
        stays = there & (contrast_out > 0.5 * contrast_in)
        seen, left = nd.sum_labels(there, labels, all_pieces), nd.sum_labels(stays, labels, all_pieces)
        figures[name], figures[name + "Left"] = int((seen > 0).sum()), int(((seen > 0) & (left > 0.5 * seen)).sum())

    figures.update(judge_fill(outside | holes, before, after, paper_out, ground))
    return figures


def judge_fill(outside, before, after, paper, ground):
    """Whether what was filled can be told from the paper beside it: by its tone, and by its grain (deviation within 5 x 5, filled : paper)."""
    filled = outside & (np.abs(after - before) > 30) & (np.abs(after - paper) <= 60)
    inner = nd.minimum_filter(filled, 7)
    if inner.sum() < 200:
        return {}
    tone = ground.of(after, filled)
    # Beside paper only: what fills a wide surround is far from any.
    beside = inner & ground.spread(ground.away * 4 < 4 * ground.mm) if ground.away is not None else inner
    fine = after - nd.uniform_filter(after, 5)
    paper_core = nd.minimum_filter(ground.bare, 7)
    grain = float(np.std(fine[paper_core])) if paper_core.any() else 0.0
    return {"fillTone": float(np.mean(np.abs(tone - paper)[beside])) if beside.any() else 0.0,
            "fillGrain": float(np.std(fine[inner])), "paperGrain": grain}


def judge_black_and_white(truth, result):
    """F-measure in %, PSNR in dB and DRD of a 1-bit page against the ink, on the sheet and away from holes, pictures and specks."""
    black = np.asarray(result.convert("L")) < 128
    ink = (truth & INK) != 0
    if black.shape != ink.shape:
        return None
    ignored = nd.maximum_filter((truth & ~np.uint8(INK | DECOY)) != 0, 7)
    black, ink = black & ~ignored, ink & ~ignored
    hits, extra, missed = int((black & ink).sum()), int((black & ~ink).sum()), int((~black & ink).sum())
    wrong = black ^ ink
    y, x = np.mgrid[-2:3, -2:3]
    weights = np.where((x == 0) & (y == 0), 0, 1 / np.sqrt(np.maximum(x * x + y * y, 1)))
    weights /= weights.sum()
    padded = np.pad(ink.astype(np.float32), 2, mode="edge")
    rows, columns = np.nonzero(wrong)
    distortion = sum(weights[dy, dx] * np.abs(padded[rows + dy, columns + dx] - black[rows, columns]).sum() for dy in range(5) for dx in range(5))
    high, wide = ink.shape[0] // 8 * 8, ink.shape[1] // 8 * 8
    blocks = ink[:high, :wide].reshape(high // 8, 8, wide // 8, 8).sum((1, 3))
    mixed = max(int(((blocks > 0) & (blocks < 64)).sum()), 1)
    pixels = max(int((~ignored).sum()), 1)
    return {"f": 200 * hits / max(2 * hits + extra + missed, 1), "psnr": float(10 * np.log10(pixels / max(extra + missed, 0.5))),
            "drd": float(distortion) / mixed, "pieces": int(len(pieces(black)[1])), "inkPieces": int(len(pieces(ink)[1]))}


def words_of(text):
    words = "".join(c if c.isalnum() else " " for c in text.lower()).split()
    return [word for word in words if len(word) > 1]


def word_accuracy(truth, read):
    """Of the words on the page and the words read, how many meet, in %: 2 x both / (page + read), whatever their order."""
    page, seen = {}, {}
    for word in words_of(truth):
        page[word] = page.get(word, 0) + 1
    for word in words_of(read):
        seen[word] = seen.get(word, 0) + 1
    both = sum(min(count, seen.get(word, 0)) for word, count in page.items())
    return 200 * both / max(sum(page.values()) + sum(seen.values()), 1)
