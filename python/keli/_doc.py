"""The library's reference text in Python: keli.reference(name) and the docstrings of the numpy
calls, both from the family contracts that also stand in keli.h and docs/reference/."""
from ._reference import FAMILIES

_FAMILY_OF = None


def _family_of(name):
    global _FAMILY_OF
    if _FAMILY_OF is None:
        _FAMILY_OF = {export: key for key, (_, _, names) in FAMILIES.items() for export in names.split()}
    return _FAMILY_OF.get(name)


def reference(name):
    """The contract of a family, by an export name ("keliAdd_8u_C1RSfs") or a table key
    ("arith/add-sub"): what it computes, its rounding, its checks and statuses, an example."""
    key = name if name in FAMILIES else _family_of(name)
    if key is None:
        raise KeyError(f"no export or family named {name!r}")
    title, text, _ = FAMILIES[key]
    return f"{title}\n\n{text}"


def documented(*keys):
    """Appends the contracts of the families a numpy call dispatches to its docstring."""

    def attach(fn):
        parts = [fn.__doc__ or ""] + [f"Reference: {reference(k)}" for k in keys]
        fn.__doc__ = "\n\n".join(p.strip("\n") for p in parts if p)
        return fn

    return attach
