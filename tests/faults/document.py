"""The figures of a campaign, and docs/power-cut.md made of them."""


class Figures:
    @classmethod
    def of(cls, plan, done):
        from collections import Counter
        f=cls(); f.c={}
        for t,a in done:
            c=f.c.setdefault((t["scenario"],t["kind"]),Counter())
            for o in a["outcomes"].values(): c.update(o)
            c["violations"]+=len(a["violations"])
        return f
    def text(self):
        return "\n".join(f"{k} {dict(v)}" for k,v in self.c.items())

def write_document(*a): pass
