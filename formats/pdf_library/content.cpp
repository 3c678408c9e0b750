#include "formats/pdf_library/content.h"

#include <cmath>

namespace rastrel::formats {
namespace {

constexpr uint64_t kMostContentBytes =
    1 << 20;                   // scanned pages have some hundred, and some ten thousand of hidden text
constexpr int kMostForms = 4;  // one in the other
constexpr int kMostDrawnForms = 1000;
constexpr size_t kMostFormBytes = 1 << 23;  // of all together
constexpr size_t kMostStates = 256;
constexpr double kTolerance = 0.02;  // of a page's side: what a picture may lack or have beyond it unnoticed
constexpr double kLeastCovered = 0.5;  // of a page by its scanned image; less is an emblem on a sheet

Matrix Product(const Matrix& first, const Matrix& then) {
  return {first.a * then.a + first.b * then.c,          first.a * then.b + first.b * then.d,
          first.c * then.a + first.d * then.c,          first.c * then.b + first.d * then.d,
          first.e * then.a + first.f * then.c + then.e, first.e * then.b + first.f * then.d + then.f};
}

// Around a rectangle under a matrix.
Box Around(const Matrix& m, double x, double y, double width, double height) {
  const double xs[] = {0, m.a * width, m.c * height, m.a * width + m.c * height};
  const double ys[] = {0, m.b * width, m.d * height, m.b * width + m.d * height};
  const double x0 = m.a * x + m.c * y + m.e, y0 = m.b * x + m.d * y + m.f;
  return {x0 + *std::min_element(xs, xs + 4), y0 + *std::min_element(ys, ys + 4),
          x0 + *std::max_element(xs, xs + 4), y0 + *std::max_element(ys, ys + 4)};
}

// But for a tolerance.
bool Covers(const Box& outer, const Box& inner) {
  const double x = kTolerance * inner.width(), y = kTolerance * inner.height();
  return outer.left <= inner.left + x && outer.right >= inner.right - x && outer.bottom <= inner.bottom + y &&
         outer.top >= inner.top - y;
}

class Interpreter : public QPDFObjectHandle::ParserCallbacks {
 public:
  Interpreter(QPDF* file, const Box& shown) : file_(file), shown_(shown) {}

  void Run(std::vector<uint8_t> content, QPDFObjectHandle resources) {
    const QPDFObjectHandle outer = std::exchange(resources_, std::move(resources));
    const std::vector<QPDFObjectHandle> operands = std::exchange(operands_, {});
    const QPDFObjectHandle stream =
        file_->newStream(std::string(reinterpret_cast<const char*>(content.data()), content.size()));
    content = {};
    QPDFObjectHandle::parseContentStream(stream, this);
    resources_ = outer;
    operands_ = operands;
  }

  Found Result() {
    Found& found = found_;
    if (pictures_ == 0) Refuse("it has no picture");
    if (!found.reason.empty()) return found;
    const Box picture = Around(found.place, 0, 0, 1, 1), seen = Common(picture, shown_);
    const bool coversPage = Covers(picture, shown_);
    found.hasMargins = !coversPage;
    if (!Covers(shown_, picture) || !Covers(clip_, seen)) Refuse("its picture is not shown whole");
    if (!coversPage && seen.width() * seen.height() < kLeastCovered * shown_.width() * shown_.height()) {
      Refuse("its picture covers little of it");
    }
    if (paintsBefore_ && (!coversPage || isStencil_)) Refuse("it has more than a picture");
    const auto isSmall = [](double part, double whole) { return std::abs(part) < 1e-3 * std::abs(whole); };
    const bool isUpright = isSmall(found.place.b, found.place.a) && isSmall(found.place.c, found.place.d);
    const bool isTurned = isSmall(found.place.a, found.place.b) && isSmall(found.place.d, found.place.c);
    if (!isUpright && !isTurned) Refuse("its picture is not straight");
    found.hasHiddenText = found.hasHiddenText || (hasText_ && paintsBefore_);
    return found;
  }

  void handleObject(QPDFObjectHandle object) override {
    if (!found_.reason.empty()) return;
    if (object.isInlineImage()) return Paint();
    if (!object.isOperator()) {
      constexpr size_t kMostOperands = 64;
      if (operands_.size() < kMostOperands) operands_.push_back(object);
      return;
    }
    Do(object.getOperatorValue());
    operands_.clear();
  }
  void handleEOF() override {}

 private:
  struct State {
    Matrix matrix;
    Box clip{-1e9, -1e9, 1e9, 1e9};
    bool isBlack = true;
    bool isTextHidden = false;
  };

  void Refuse(const char* reason) {
    if (found_.reason.empty()) found_.reason = reason;
  }
  double Number(size_t i) const {
    return i < operands_.size() && QPDFObjectHandle(operands_[i]).isNumber()
               ? QPDFObjectHandle(operands_[i]).getNumericValue()
               : 0;
  }
  std::string Name(size_t i) const {
    return i < operands_.size() && QPDFObjectHandle(operands_[i]).isName()
               ? QPDFObjectHandle(operands_[i]).getName()
               : "";
  }

  void Do(const std::string& op) {
    if (op == "q") {
      if (states_.size() >= kMostStates) return Refuse("its contents are too deep");
      states_.push_back(state_);
    } else if (op == "Q") {
      if (states_.empty()) return;
      state_ = states_.back();
      states_.pop_back();
    } else if (op == "cm") {
      state_.matrix =
          Product({Number(0), Number(1), Number(2), Number(3), Number(4), Number(5)}, state_.matrix);
    } else if (op == "Do") {
      Draw();
    } else if (op == "gs") {
      SetState();
    } else if (op == "Tr") {
      state_.isTextHidden = Number(0) == 3 || Number(0) == 7;
    } else if (op == "Tj" || op == "TJ" || op == "'" || op == "\"") {
      hasText_ = true;
      if (state_.isTextHidden) {
        found_.hasHiddenText = true;
      } else {
        Paint();
      }
    } else if (op == "re") {
      path_ = Around(state_.matrix, Number(0), Number(1), Number(2), Number(3));
      ++pieces_;
    } else if (op == "m" || op == "l" || op == "c" || op == "v" || op == "y") {
      pieces_ += 2;  // not a rectangle
    } else if (op == "W" || op == "W*") {
      isClipping_ = true;
    } else if (op == "n") {
      EndPath();
    } else if (op == "f" || op == "F" || op == "f*" || op == "B" || op == "B*" || op == "b" || op == "b*" ||
               op == "S" || op == "s" || op == "sh") {
      Paint();
      EndPath();
    } else if (op == "g") {
      state_.isBlack = Number(0) == 0;
    } else if (op == "rg") {
      state_.isBlack = Number(0) == 0 && Number(1) == 0 && Number(2) == 0;
    } else if (op == "k") {
      state_.isBlack = Number(3) == 1;
    } else if (op == "cs" || op == "sc" || op == "scn") {
      state_.isBlack = false;
    } else if (op == "BDC" && Name(0) == "/OC") {
      Refuse("it has layers that can be hidden");
    }
  }

  void EndPath() {
    if (isClipping_ && pieces_ == 1) state_.clip = Common(state_.clip, path_);
    if (isClipping_ && pieces_ > 1) Refuse("its picture is not shown whole");
    isClipping_ = false;
    pieces_ = 0;
  }

  void Paint() {
    if (pictures_ > 0) return Refuse("it has more than a picture");
    paintsBefore_ = true;
  }

  QPDFObjectHandle Resource(const char* kind, const std::string& name) {
    if (!resources_.isDictionary()) return QPDFObjectHandle::newNull();
    QPDFObjectHandle all = resources_.getKey(kind);
    return all.isDictionary() && !name.empty() ? all.getKey(name) : QPDFObjectHandle::newNull();
  }

  // Whether what follows lies on the page as it is.
  void SetState() {
    QPDFObjectHandle state = Resource("/ExtGState", Name(0));
    if (!state.isDictionary()) return;
    QPDFObjectHandle alpha = state.getKey("/ca"), mask = state.getKey("/SMask"), mode = state.getKey("/BM");
    const bool isOpaque = !alpha.isNumber() || alpha.getNumericValue() == 1;
    const bool isUnmasked = mask.isNull() || (mask.isName() && mask.getName() == "/None");
    const bool isNormal =
        mode.isNull() || (mode.isName() && (mode.getName() == "/Normal" || mode.getName() == "/Compatible"));
    if (!isOpaque || !isUnmasked || !isNormal) Refuse("it has transparent parts");
  }

  void Draw() {
    QPDFObjectHandle object = Resource("/XObject", Name(0));
    if (!object.isStream()) return Refuse("it draws what is not there");
    QPDFObjectHandle dictionary = object.getDict();
    if (!dictionary.getKey("/OC").isNull()) return Refuse("it has layers that can be hidden");
    if (dictionary.getKey("/Subtype").isNameAndEquals("/Form")) return DrawForm(object);
    if (!dictionary.getKey("/Subtype").isNameAndEquals("/Image")) return;
    const QPDFObjectHandle stencil = dictionary.getKey("/ImageMask");
    isStencil_ = QPDFObjectHandle(stencil).isBool() && QPDFObjectHandle(stencil).getBoolValue();
    if (!dictionary.getKey("/SMask").isNull() || !dictionary.getKey("/Mask").isNull()) {
      return Refuse("its picture is transparent in parts");
    }
    if (isStencil_ && !state_.isBlack) return Refuse("its picture is a stencil in colour");
    if (++pictures_ > 1) return Refuse("it has several pictures");
    found_.image = object;
    found_.place = state_.matrix;
    clip_ = state_.clip;
  }

  void DrawForm(QPDFObjectHandle form) {
    if (forms_ == kMostForms) return Refuse("its contents are too deep");
    if (++drawnForms_ > kMostDrawnForms) return Refuse("its contents are too long");
    Collector content(kMostContentBytes);
    if (!form.pipeStreamData(&content, 0, qpdf_dl_generalized, /*suppress_warnings=*/true) ||
        content.isOver()) {
      return Refuse("its contents are too long");
    }
    std::vector<uint8_t> bytes = content.Take();
    if (bytes.size() > formBytesLeft_) return Refuse("its contents are too long");
    formBytesLeft_ -= bytes.size();
    QPDFObjectHandle dictionary = form.getDict();
    const State outer = state_;
    const std::vector<State> states = std::exchange(states_, {});
    if (dictionary.getKey("/Matrix").isMatrix()) {
      const auto m = dictionary.getKey("/Matrix").getArrayAsMatrix();
      state_.matrix = Product({m.a, m.b, m.c, m.d, m.e, m.f}, state_.matrix);
    }
    if (dictionary.getKey("/BBox").isRectangle()) {
      const auto box = dictionary.getKey("/BBox").getArrayAsRectangle();
      state_.clip =
          Common(state_.clip, Around(state_.matrix, box.llx, box.lly, box.urx - box.llx, box.ury - box.lly));
    }
    ++forms_;
    QPDFObjectHandle own = dictionary.getKey("/Resources");
    Run(std::move(bytes), own.isDictionary() ? own : resources_);
    --forms_;
    state_ = outer;
    states_ = states;
  }

  QPDF* file_;
  Box shown_;
  Found found_;
  QPDFObjectHandle resources_ = QPDFObjectHandle::newNull();
  std::vector<QPDFObjectHandle> operands_;
  State state_;
  std::vector<State> states_;
  Box clip_, path_;
  int pieces_ = 0, pictures_ = 0, forms_ = 0, drawnForms_ = 0;
  size_t formBytesLeft_ = kMostFormBytes;
  bool isClipping_ = false, paintsBefore_ = false, hasText_ = false, isStencil_ = false;
};

}  // namespace

Box Common(const Box& one, const Box& other) {
  return {std::max(one.left, other.left), std::max(one.bottom, other.bottom),
          std::min(one.right, other.right), std::min(one.top, other.top)};
}

Found FindPicture(QPDF* file, QPDFPageObjectHelper page, const Box& shown) {
  Interpreter interpreter(file, shown);
  Collector content(kMostContentBytes);
  for (QPDFObjectHandle stream : page.getObjectHandle().getPageContents()) {
    if (!stream.pipeStreamData(&content, 0, qpdf_dl_generalized, /*suppress_warnings=*/true)) {
      throw PageError("is damaged: its contents cannot be read", ErrDamagedFile);
    }
    if (content.isOver()) {
      Found found;
      found.reason = "its contents are long";
      return found;
    }
    content.write(reinterpret_cast<const unsigned char*>("\n"), 1);  // words do not go on in the next
  }
  interpreter.Run(content.Take(), page.getAttribute("/Resources", false));
  return interpreter.Result();
}

}  // namespace rastrel::formats
