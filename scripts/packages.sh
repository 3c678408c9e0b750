# The Debian 12 packages that Rastrel needs, and the function that installs what is missing of them. To be sourced:
#
#   . scripts/packages.sh
#   rastrel_install "${RASTREL_BUILD_PACKAGES[@]}" "${RASTREL_TOOL_PACKAGES[@]}"

RASTREL_BUILD_PACKAGES=(g++ cmake ninja-build pkg-config)
RASTREL_TOOL_PACKAGES=(libtiff-dev libpng-dev libjpeg62-turbo-dev libqpdf-dev liblcms2-dev libfmt-dev
  nlohmann-json3-dev libcli11-dev libsqlite3-dev libssl-dev libseccomp-dev poppler-utils jbig2dec libvips42)
RASTREL_TEST_PACKAGES=(python3 googletest libgtest-dev qpdf libgmock-dev libbenchmark-dev g++-multilib python3)
RASTREL_ACCURACY_PACKAGES=(libfreetype-dev fonts-liberation fonts-dejavu-core)
RASTREL_QUALITY_PACKAGES=(libharfbuzz-dev fonts-hosny-amiri culmus fonts-blankenburg fonts-breip fonts-dkg-handwriting
  tesseract-ocr tesseract-ocr-eng python3-numpy python3-pil python3-scipy liblept5 imagemagick unpaper)
RASTREL_PYTHON_PACKAGES=(python3-venv python3-dev)
RASTREL_LINT_PACKAGES=(clang-format)
RASTREL_PEER_PACKAGES=(libleptonica-dev libopencv-dev unpaper libbenchmark-dev time python3)
RASTREL_WEB_PACKAGES=(cmake ninja-build emscripten nodejs npm)
RASTREL_WEB_TEST_PACKAGES=(chromium)
RASTREL_FUZZ_PACKAGES=(clang llvm)
RASTREL_WINDOWS_PACKAGES=(g++-mingw-w64-x86-64 g++-mingw-w64-i686 wine64 xvfb xauth)

# Installs those of the packages named that are not there. As another user than root it asks sudo.
rastrel_install() {
  local missing=() package
  for package in "$@"; do
    # These may be there as a part of another package.
    case "$package" in pkg-config | npm) ! command -v "$package" >/dev/null || continue ;; esac
    if [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" != installed ]; then
      missing+=("$package")
    fi
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "These packages are missing and need root: ${missing[*]}" >&2; return 1; }
    as_root=(sudo)
  fi
  echo "Installing: ${missing[*]}"
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -qq
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"
}
