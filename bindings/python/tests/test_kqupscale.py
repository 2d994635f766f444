"""kqupscale against the library's own C call (through ctypes on
libKQUpScale.so, named by KQ_LIBRARY): the same bytes for packed, strided
and padded arrays, the out= form writing only the caller's elements, the
refusals, calls from several threads at once and the RGB conversion."""
import ctypes
import mmap
import os
import threading
import time

import numpy as np
import pytest

import kqupscale

LIB = ctypes.CDLL(os.environ["KQ_LIBRARY"])
NV21, NV12 = 8, 9


class Record(ctypes.Structure):
    _fields_ = [(name, ctypes.c_int32) for name in (
        "type", "width", "height", "yPixelStride", "yRowStride", "yScanlines",
        "uPixelStride", "uRowStride", "vPixelStride", "vRowStride")] + [
        (name, ctypes.c_void_p) for name in ("yData", "chromaData", "vData")]


LIB.KQUpScale_ScaleImageFromROI.argtypes = (
    [ctypes.POINTER(Record)] * 2 + [ctypes.c_int32] * 6 +
    [ctypes.c_float, ctypes.c_int32, ctypes.c_int32])


def c_upscale(y, uv, size, order="nv21", roi=None, nr=3, cnr=4, sharpening=0.6,
              threads=0, in_type=None):
    """The C call on packed copies of y and uv; returns the output as arrays."""
    h, w = y.shape
    ow, oh = size
    code = NV12 if order == "nv12" else NV21
    y_in = np.ascontiguousarray(y)
    # The record reads chroma rows at the luma row stride, w bytes apart.
    c_in = np.zeros((h // 2, w), np.uint8)
    c_in[:, :2 * (w // 2)] = np.asarray(uv).reshape(h // 2, -1)
    y_out = np.zeros((oh, ow), np.uint8)
    c_out = np.zeros((oh // 2) * ow, np.uint8)
    src = Record(code if in_type is None else in_type, w, h, 1, w, h, 2, w, 2, w,
                 y_in.ctypes.data, c_in.ctypes.data, None)
    dst = Record(code, ow, oh, 1, ow, oh, 2, ow, 2, ow,
                 y_out.ctypes.data, c_out.ctypes.data, None)
    corners = (-1, -1, -1, -1) if roi is None else (
        roi[0], roi[1], roi[0] + roi[2] - 1, roi[1] + roi[3] - 1)
    LIB.KQUpScale_ScaleImageFromROI(ctypes.byref(src), ctypes.byref(dst), *corners,
                                    nr, cnr, sharpening, threads, 0)
    # An odd width lays the chroma rows one byte closer (the header's layout).
    pitch = ow if ow % 2 == 0 else ow - 1
    rows = c_out[:(oh // 2) * pitch].reshape(oh // 2, pitch)
    return y_out, rows[:, :2 * (ow // 2)].reshape(oh // 2, ow // 2, 2)


def image(w, h, seed=1):
    rng = np.random.default_rng(seed)
    # A smooth picture with noise on it, so that every filter has work.
    yy, xx = np.mgrid[0:h, 0:w]
    y = (96 + 80 * np.sin(xx / 5.0) * np.cos(yy / 7.0) + rng.normal(0, 12, (h, w)))
    uv = 128 + rng.integers(-40, 40, (h // 2, w // 2, 2))
    return np.clip(y, 0, 255).astype(np.uint8), uv.astype(np.uint8)


def assert_same(result, expected):
    assert np.array_equal(result[0], expected[0]), "luma differs"
    assert np.array_equal(result[1], expected[1]), "chroma differs"


CASES = [
    # (input w, h), output size, keyword arguments
    ((64, 48), (256, 192), {}),
    ((61, 47), (250, 190), {}),                      # odd input sides
    ((64, 48), (129, 97), {}),                       # odd output sides
    ((64, 48), (256, 192), {"order": "nv12"}),
    ((64, 48), (200, 100), {"noise_reduction": 0, "chroma_noise_reduction": 0,
                            "sharpening": 0.0}),     # the bare warp; aspect cut
    ((64, 48), (256, 192), {"threads": 2}),
    ((64, 48), (256, 192), {"threads": -2, "sharpening": 1.5}),
    ((64, 48), (160, 120), {"roi": (8, 4, 40, 30)}),
]


@pytest.mark.parametrize("in_size,out_size,kwargs", CASES)
def test_matches_the_c_call(in_size, out_size, kwargs):
    y, uv = image(*in_size)
    c_kwargs = {"order": kwargs.get("order", "nv21"), "roi": kwargs.get("roi"),
                "nr": kwargs.get("noise_reduction", 3),
                "cnr": kwargs.get("chroma_noise_reduction", 4),
                "sharpening": kwargs.get("sharpening", 0.6), "threads": kwargs.get("threads", 0)}
    assert_same(kqupscale.upscale(y, uv, out_size, **kwargs),
                c_upscale(y, uv, out_size, **c_kwargs))


def test_odd_region_x_keeps_u_and_v_in_place():
    y, _ = image(64, 48)
    uv = np.empty((24, 32, 2), np.uint8)
    uv[..., 0], uv[..., 1] = 200, 60                 # NV21: V, U
    # (Chroma noise reduction moves flat chroma by a level or two.)
    for kwargs, slack in (({"noise_reduction": 0, "chroma_noise_reduction": 0}, 0), ({}, 3)):
        _, out_uv = kqupscale.upscale(y, uv, (128, 96), roi=(5, 3, 41, 30), **kwargs)
        assert np.abs(out_uv[..., 0].astype(int) - 200).max() <= slack
        assert np.abs(out_uv[..., 1].astype(int) - 60).max() <= slack
    # The bytes are the C call's with the input's byte order exchanged.
    assert_same(kqupscale.upscale(y, uv, (128, 96), roi=(5, 3, 41, 30)),
                c_upscale(y, uv, (128, 96), roi=(5, 3, 41, 30), in_type=NV12))


def strided_layouts(y, uv):
    """The same image as views with row strides, offsets and other forms."""
    h, w = y.shape
    h2, w2 = h // 2, w // 2
    layouts = {}
    # Luma and chroma at one padded row stride, at offsets in larger arrays.
    canvas_y = np.full((h + 9, 2 * (w2 + 11)), 7, np.uint8)
    canvas_uv = np.full((h2 + 5, w2 + 11, 2), 9, np.uint8)
    sy, suv = canvas_y[5:5 + h, 6:6 + w], canvas_uv[3:3 + h2, 4:4 + w2]
    sy[...], suv[...] = y, uv
    assert sy.strides[0] == suv.strides[0]
    layouts["same row stride"] = (sy, suv)
    # Chroma rows at a stride of their own (copied to the luma's).
    layouts["other chroma stride"] = (sy, np.ascontiguousarray(uv))
    # One NV21 buffer with padded rows; chroma as a 2-D array of bytes.
    rs = w + 24
    buf = np.zeros((h + h2, rs), np.uint8)
    buf[:h, :w], buf[h:, :2 * w2] = y, uv.reshape(h2, -1)
    layouts["one padded buffer, 2-D uv"] = (buf[:h, :w], buf[h:, :2 * w2])
    return layouts


@pytest.mark.parametrize("w,h", [(64, 48), (61, 47)])
def test_strided_inputs_give_the_packed_bytes(w, h):
    y, uv = image(w, h)
    expected = c_upscale(y, uv, (192, 144))
    for name, (sy, suv) in strided_layouts(y, uv).items():
        before = (sy.copy(), suv.copy())
        assert_same(kqupscale.upscale(sy, suv, (192, 144)), expected)
        assert_same((sy, suv), before)


def guarded(nbytes):
    """A writable array of nbytes that ends right at an inaccessible page."""
    page = mmap.PAGESIZE
    pages = (nbytes + page - 1) // page + 1
    block = mmap.mmap(-1, pages * page)
    libc = ctypes.CDLL(None, use_errno=True)
    libc.mprotect.argtypes = [ctypes.c_void_p, ctypes.c_size_t, ctypes.c_int]
    whole = np.frombuffer(block, np.uint8)
    assert libc.mprotect(whole.ctypes.data + (pages - 1) * page, page, 0) == 0
    return block, whole[(pages - 1) * page - nbytes:(pages - 1) * page]


def test_padded_views_are_read_only_up_to_their_last_pixel():
    # Padded rows whose last row ends at an inaccessible page: a read of the
    # last row's padding, as the record's plane size would allow, faults.
    w, h, rs = 61, 47, 80
    y, uv = image(w, h)
    block_y, mem_y = guarded((h - 1) * rs + w)
    block_c, mem_c = guarded((h // 2 - 1) * rs + 2 * (w // 2))
    gy = np.lib.stride_tricks.as_strided(mem_y, (h, w), (rs, 1))
    guv = np.lib.stride_tricks.as_strided(mem_c, (h // 2, w // 2, 2), (rs, 2, 1))
    gy[...], guv[...] = y, uv
    calls = [({}, {}),
             ({"noise_reduction": 0, "chroma_noise_reduction": 0, "sharpening": 0.0},
              {"nr": 0, "cnr": 0, "sharpening": 0.0}),
             ({"roi": (1, 1, 60, 46)}, {"roi": (1, 1, 60, 46), "in_type": NV12})]
    for kwargs, c_kwargs in calls:
        assert_same(kqupscale.upscale(gy, guv, (122, 94), **kwargs),
                    c_upscale(y, uv, (122, 94), **c_kwargs))


def out_layouts(ow, oh, fill):
    """Output arrays as views inside larger arrays filled with `fill`."""
    h2, w2 = oh // 2, ow // 2
    layouts = {}
    canvas_y = np.full((oh + 4, 2 * (w2 + 7)), fill, np.uint8)
    canvas_uv = np.full((h2 + 3, w2 + 7, 2), fill, np.uint8)
    layouts["padded, one row stride"] = (
        (canvas_y, canvas_uv), (canvas_y[2:2 + oh, 3:3 + ow], canvas_uv[1:1 + h2, 2:2 + w2]))
    rs = ow + 16
    buf = np.full((oh + h2, rs), fill, np.uint8)
    layouts["one padded buffer, 2-D uv"] = ((buf,), (buf[:oh, :ow], buf[oh:, :2 * w2]))
    packed_y = np.full((oh, ow), fill, np.uint8)
    canvas_uv2 = np.full((h2 + 1, w2, 2), fill, np.uint8)
    layouts["packed luma, chroma at its own stride"] = (
        (packed_y, canvas_uv2), (packed_y, canvas_uv2[1:]))
    packed_uv = np.full((h2, w2, 2), fill, np.uint8)
    layouts["packed"] = ((packed_y.copy(), packed_uv), None)
    return layouts


@pytest.mark.parametrize("ow,oh,order", [(192, 144, "nv21"), (191, 143, "nv21"),
                                         (192, 144, "nv12")])
def test_out_arrays_get_the_result_and_nothing_else_changes(ow, oh, order):
    y, uv = image(64, 48)
    expected = c_upscale(y, uv, (ow, oh), order=order)
    for name, (owners, views) in out_layouts(ow, oh, 0xA5).items():
        if views is None:
            views = owners
        marked = [a.copy() for a in owners]
        for view in views:
            view[...] = 0                            # what the call must overwrite
        untouched = [a.copy() for a in owners]
        result = kqupscale.upscale(y, uv, (ow, oh), order=order, out=views)
        assert result[0] is views[0] and result[1] is views[1], name
        assert_same((result[0], result[1].reshape(expected[1].shape)), expected)
        # Every byte outside the views keeps its mark.
        for owner, before, mark in zip(owners, untouched, marked):
            outside = np.ones(owner.shape, bool)
            for view in views:
                if np.shares_memory(owner, view):
                    mask = np.zeros(owner.shape, bool)
                    start = view.ctypes.data - owner.ctypes.data
                    np.lib.stride_tricks.as_strided(
                        mask.reshape(-1)[start:], view.shape, view.strides)[...] = True
                    outside &= ~mask
            assert np.array_equal(owner[outside], before[outside]), name


def test_out_arrays_may_hold_the_input():
    # The input lies inside the output's luma array: the library works from
    # a copy of it.
    y, uv = image(64, 48)
    expected = c_upscale(y, uv, (256, 192))
    out_y, out_uv = np.zeros((192, 256), np.uint8), np.zeros((96, 128, 2), np.uint8)
    in_y, in_uv = out_y[10:58, 20:84], out_y[100:124, 0:64].reshape(24, 32, 2)
    in_y[...], in_uv[...] = y, uv
    assert_same(kqupscale.upscale(in_y, in_uv, out=(out_y, out_uv)), expected)


def error_cases():
    y, uv = image(64, 48)
    ro = np.zeros((96, 128), np.uint8)
    ro.flags.writeable = False
    return [
        (lambda o: kqupscale.upscale(y.astype(np.int16), uv, (128, 96)), "dtype uint8"),
        (lambda o: kqupscale.upscale(y[None], uv, (128, 96)), "2-D array"),
        (lambda o: kqupscale.upscale(y, uv[:, :31], (128, 96)), "must have shape (24, 32, 2)"),
        (lambda o: kqupscale.upscale(y[:, ::2], uv[:, :16], (128, 96)), "1 byte apart"),
        (lambda o: kqupscale.upscale(y[::-1], uv, (128, 96)), "ascending"),
        (lambda o: kqupscale.upscale(y, uv[..., ::-1], (128, 96)), "pair adjacent"),
        (lambda o: kqupscale.upscale(y[:3, :3], uv[:1, :1], (128, 96)), "smaller than 4x4"),
        (lambda o: kqupscale.upscale(y, uv, (128, 96), roi=(60, 0, 8, 8)), "does not lie inside"),
        (lambda o: kqupscale.upscale(y, uv, (128, 96), roi=(0, 0, 3, 40)), "smaller than 4x4"),
        (lambda o: kqupscale.upscale(y, uv, (1, 96)), "below 2x2"),
        (lambda o: kqupscale.upscale(y, uv, (60000, 60000)), "2 GiB or more"),
        (lambda o: kqupscale.upscale(y, uv, (1000, 2)), "less than 4x4"),
        (lambda o: kqupscale.upscale(y, uv, (128, 96), sharpening=-1.0), "sharpening"),
        (lambda o: kqupscale.upscale(y, uv, (128, 96), sharpening=float("nan")), "sharpening"),
        (lambda o: kqupscale.upscale(y, uv, (128, 96), order="i420"), "order"),
        (lambda o: kqupscale.upscale(y, uv, (128,)), "(width, height)"),
        (lambda o: kqupscale.upscale(y, uv), "size"),
        (lambda o: kqupscale.upscale(y, uv, (100, 96), out=o), "does not match"),
        (lambda o: kqupscale.upscale(y, uv, out=(ro, o[1])), "read-only"),
        (lambda o: kqupscale.upscale(y, uv, out=(o[0], o[0][:48].reshape(48, 64, 2))),
         "share bytes"),
        # A row stride of 2^30 makes a 4 GiB luma plane; refused unread.
        (lambda o: kqupscale.upscale(
            np.lib.stride_tricks.as_strided(y, (8, 8), (1 << 30, 1)), uv[:4, :4], (16, 16)),
         "2 GiB or more"),
    ]


@pytest.mark.parametrize("index", range(len(error_cases())))
def test_refusals_raise_before_anything_is_written(index):
    call, reason = error_cases()[index]
    out = (np.full((96, 128), 0x5A, np.uint8), np.full((48, 64, 2), 0x5A, np.uint8))
    with pytest.raises(ValueError) as err:
        call(out)
    assert reason in str(err.value)
    assert (out[0] == 0x5A).all() and (out[1] == 0x5A).all()


def test_non_arrays_are_a_type_error():
    with pytest.raises(TypeError, match="NumPy array"):
        kqupscale.upscale([[0] * 8] * 8, np.zeros((4, 4, 2), np.uint8), (16, 16))


def test_calls_from_several_threads_give_their_own_bytes():
    jobs = [(image(64 + 8 * i, 48, seed=i), (160 + 16 * i, 120), threads)
            for i, threads in enumerate((0, 2, -2, 0, 3, 1))]
    expected = [c_upscale(*img, size) for img, size, _ in jobs]
    results = [None] * len(jobs)

    def work(i):
        img, size, threads = jobs[i]
        for _ in range(3):
            results[i] = kqupscale.upscale(*img, size, threads=threads)

    workers = [threading.Thread(target=work, args=(i,)) for i in range(len(jobs))]
    for t in workers:
        t.start()
    for t in workers:
        t.join()
    for result, want in zip(results, expected):
        assert_same(result, want)


def test_other_threads_run_python_during_a_call():
    # With the GIL held through a call, a ticking thread could add at most
    # a tick at either end of it; released, it ticks all through.
    y, uv = image(480, 270)
    out = (np.zeros((2160, 3840), np.uint8), np.zeros((1080, 1920, 2), np.uint8))
    ticks, calls = [], []
    stop = threading.Event()

    def tick():
        while not stop.is_set():
            ticks.append(time.perf_counter())
            time.sleep(0.0005)

    ticker = threading.Thread(target=tick)
    ticker.start()
    try:
        for _ in range(4):
            start = time.perf_counter()
            kqupscale.upscale(y, uv, out=out)
            calls.append((start, time.perf_counter()))
    finally:
        stop.set()
        ticker.join()
    inside = [sum(a < t < b for t in ticks) for a, b in calls]
    assert max(inside) >= 4, f"ticks inside the calls: {inside}, calls {calls}"


# --- RGB ----------------------------------------------------------------------

def flat(w, h, colour):
    return np.tile(np.array(colour, np.uint8), (h, w, 1))


@pytest.mark.parametrize("colour,yuv", [
    ((255, 255, 255), (235, 128, 128)), ((0, 0, 0), (16, 128, 128)),
    ((255, 0, 0), (82, 90, 240)), ((0, 0, 255), (41, 240, 110)),
])
def test_rgb_conversion_is_bt601_limited_range(colour, yuv):
    y, uv = kqupscale.rgb_to_nv(flat(6, 4, colour))
    assert y.shape == (4, 6) and uv.shape == (2, 3, 2)
    assert np.abs(y.astype(int) - yuv[0]).max() <= 1
    assert np.abs(uv[..., 1].astype(int) - yuv[1]).max() <= 1    # NV21: V, U
    assert np.abs(uv[..., 0].astype(int) - yuv[2]).max() <= 1
    y12, uv12 = kqupscale.rgb_to_nv(flat(6, 4, colour), order="nv12")
    assert np.array_equal(y12, y) and np.array_equal(uv12, uv[..., ::-1])
    back = kqupscale.nv_to_rgb(y, uv)
    assert np.abs(back.astype(int) - np.array(colour)).max() <= 5


def test_upscale_rgb_is_the_nv21_upscale_between_conversions():
    rng = np.random.default_rng(3)
    rgb = rng.integers(0, 256, (48, 64, 3)).astype(np.uint8)
    via_nv = kqupscale.nv_to_rgb(*kqupscale.upscale(*kqupscale.rgb_to_nv(rgb), (160, 120)))
    assert np.array_equal(kqupscale.upscale_rgb(rgb, (160, 120)), via_nv)
    # Any strides: a BGR picture as a reversed view; RGBA gives alpha 255.
    bgr = np.ascontiguousarray(rgb[..., ::-1])
    assert np.array_equal(kqupscale.upscale_rgb(bgr[..., ::-1], (160, 120)), via_nv)
    rgba = np.concatenate([rgb, np.full((48, 64, 1), 7, np.uint8)], axis=2)
    out = kqupscale.upscale_rgb(rgba, (160, 120))
    assert np.array_equal(out[..., :3], via_nv) and (out[..., 3] == 255).all()


def test_upscale_rgb_odd_sides_keep_the_picture_to_the_edge():
    # The repeated last column and row stand for real pixels: a flat picture
    # keeps its colour up to the last output pixel, at the size asked for
    # (within the conversion's rounding).
    out = kqupscale.upscale_rgb(flat(37, 29, (200, 60, 30)), (75, 59))
    assert out.shape == (59, 75, 3)
    assert np.abs(out.astype(int) - np.array((200, 60, 30))).max() <= 6


def test_rgb_refusals():
    with pytest.raises(ValueError, match="height, width, 3"):
        kqupscale.upscale_rgb(np.zeros((8, 8, 2), np.uint8), (16, 16))
    with pytest.raises(ValueError, match="below 2x2"):
        kqupscale.rgb_to_nv(np.zeros((1, 8, 3), np.uint8))
    with pytest.raises(ValueError, match="even width"):
        kqupscale.nv_to_rgb(np.zeros((8, 7), np.uint8), np.zeros((4, 3, 2), np.uint8))
    with pytest.raises(ValueError, match="inside"):
        kqupscale.upscale_rgb(np.zeros((8, 8, 3), np.uint8), (16, 16), roi=(4, 4, 8, 8))
