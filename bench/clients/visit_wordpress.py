"""WordPress as an editor and administrator uses it."""
import base64
import json
import re
import time
import urllib.parse

from application_site import PASSWORD, USER
from posts import quoted
from visits import Failed

EDITOR = "!!(window.wp && wp.data && wp.data.select('core/editor') && wp.data.select('core/editor').getCurrentPostId())"
WRITE = """(async () => {
  const editor = wp.data.dispatch('core/editor'), state = wp.data.select('core/editor');
  editor.editPost({title: %s, content: %s}); await editor.autosave();
  editor.editPost({status: 'publish', excerpt: %s}); await editor.savePost();
  return state.didPostSaveRequestSucceed() && state.getCurrentPost().status;
})()"""
PAGES = ["index.php", "edit.php", "edit.php?post_type=page", "edit-tags.php?taxonomy=category",
         "edit-tags.php?taxonomy=post_tag",
         "upload.php", "upload.php?mode=list", "media-new.php", "edit-comments.php", "themes.php", "site-editor.php",
         "theme-install.php?browse=popular",
         "plugins.php", "plugin-install.php", "plugin-editor.php", "theme-editor.php", "users.php", "user-new.php",
         "profile.php", "tools.php", "import.php",
         "export.php", "site-health.php", "export-personal-data.php", "erase-personal-data.php", "update-core.php",
         "options-privacy.php", "about.php", "freedoms.php", "customize.php",
         "edit.php?s=o%27brien+union+select&post_status=all&orderby=title&order=asc&action=-1&m=0&cat=0&paged=1&filter_action=Filter"]
# What a text about attacks quotes.
ATTACKS = ["1' or '1'='1' -- ", "x' UNION SELECT user_login, user_pass FROM wp_users-- ", "1; DROP TABLE users",
           "<script>alert(document.cookie)</script>",
           "<img src=x onerror=alert(1)>"]
SETTINGS = {"options-general.php": {"#blogname": "O'Brien & Sons' \"Harbour\" News",
                                    "#blogdescription": "Where the union meets -- and more"},
            "options-writing.php": {}, "options-reading.php": {}, "options-media.php": {},
            "options-discussion.php": {"#moderation_keys": "viagra\ncasino\n1' or\n<b>",
                                       "#disallowed_keys": "drop table\nunion select"}}


def install(visit):
    browser = visit.browser
    with visit.action("install the blog"):
        visit.open("/blog/wp-admin/install.php")
        if browser.value("!!document.querySelector('#language-continue')"):
            browser.click("#language-continue")
        browser.wait("!!document.querySelector('#weblog_title')")
        for field, text in {"#weblog_title": "Harbour News", "#user_login": USER, "#pass1": PASSWORD,
                            "#admin_email": "e@example.org"}.items():
            browser.type(field, text)
        browser.click("#submit")
        browser.wait("/Success!/.test(document.body.innerText)", 90)


def write_posts(visit, posts, by_hand):
    """The first ones in the editor itself, the others by the requests that it sends."""
    for post in posts[:by_hand]:
        with visit.action(f"write in the editor: {post.title}"):
            visit.open("/blog/wp-admin/post-new.php", EDITOR)
            text = WRITE % tuple(json.dumps(part) for part in (post.title, post.wordpress(), post.text[:150]))
            if visit.browser.value(text) != "publish":
                raise AssertionError("not published")
    headers = rest_headers(visit)
    for number, post in enumerate(posts):
        # Begun empty, so that what is stopped does not stop the rest.
        made = json.loads(visit.send("/blog/index.php?rest_route=/wp/v2/posts&_locale=user",
                                     {"title": "New", "status": "draft"}, "json",
                                     headers))["id"]
        route = f"/blog/index.php?rest_route=%2Fwp%2Fv2%2Fposts%2F{made}"
        draft = {"title": post.title, "content": post.wordpress(), "status": "draft"}
        with visit.action(f"write: {post.title}"):
            visit.send(f"{route}&_locale=user", draft, "json", headers)
        with visit.action(f"autosave and publish: {post.title}"):
            visit.send(f"{route}%2Fautosaves&_locale=user", {**draft, "excerpt": post.excerpt(200)}, "json", headers)
            visit.send(f"{route}&_locale=user", {"id": made, "status": "publish", "content": post.wordpress()}, "json",
                       {**headers, "X-HTTP-Method-Override": "PUT"})
        with visit.action(f"read: {post.title}"):
            visit.get(f"/blog/?p={made}")
        if not post.is_script:
            with visit.action(f"comment: {post.title}"):
                comment(visit, made, f"{number}: {post.text[:3000]}")
        with visit.action(f"search: {post.title}"):
            visit.get("/blog/?s=" + urllib.parse.quote_plus(post.title))
        with visit.action(f"edit as rich text in a form: {post.title}"):
            form = visit.get(f"/blog/wp-admin/post.php?post={made}&action=edit")
            nonce = re.search(r'name="_wpnonce" value="(\w+)"', form)
            if not nonce:
                raise Failed("no form")
            visit.send("/blog/wp-admin/post.php",
                       {"post_ID": str(made), "action": "editpost", "post_type": "post", "user_ID": "1",
                                                   "_wpnonce": nonce.group(1), "post_title": post.title,
                                                   "content": post.rich_text(),
                                                   "excerpt": post.excerpt(300), "save": "Update",
                                                   "_wp_http_referer": "/blog/wp-admin/edit.php"})


def comment(visit, post, text):
    visit.send("/blog/wp-comments-post.php",
               {"comment": text, "submit": "Post Comment", "comment_post_ID": str(post), "comment_parent": "0"},
               most=409)


def attack(visit, posts):
    for post in posts:
        if post.is_script:
            visit.attack(f"comment: {post.title}", lambda text=post.text: comment(visit, 1, text))
    for text in ATTACKS:
        visit.attack(f"comment: {text}", lambda text=text: comment(visit, 1, f"{text} {time.monotonic()}"))
        visit.attack(f"search: {text}", lambda text=text: visit.get("/blog/?s=" + urllib.parse.quote_plus(text)))
        if "<" in text:
            visit.attack(f"write: {text}",
                         lambda text=text: visit.send("/blog/index.php?rest_route=/wp/v2/posts&_locale=user", {
                "title": "Own HTML", "content": f"<!-- wp:html -->\n{text}\n<!-- /wp:html -->", "status": "draft"}, "json",
                rest_headers(visit)))


def rest_headers(visit):
    visit.open("/blog/wp-admin/edit.php")
    visit.browser.value("fetch('admin-ajax.php?action=rest-nonce').then(r => r.text()).then(t => window.nonce = t)")
    return {"X-WP-Nonce": visit.browser.value("window.nonce"), "Accept": "application/json, */*;q=0.1"}


def upload(visit, files):
    for path in files:
        with visit.action(f"upload {path.name}"):
            visit.open("/blog/wp-admin/media-new.php?browser-uploader")
            visit.browser.value("document.body.classList.add('html-uploader')")
            visit.browser.choose_files("#async-upload", path)
            visit.submit_form("#file-form", "#html-upload")
    with visit.action("upload a picture from the editor"):
        visit.open("/blog/wp-admin/upload.php")
        nonce = visit.browser.value("_wpPluploadSettings.defaults.multipart_params._wpnonce")
        picture = base64.b64encode(files[0].read_bytes()).decode()
        visit.send("/blog/wp-admin/async-upload.php",
                   [["name", "O'Brien's boat (1).png"], ["action", "upload-attachment"], ["_wpnonce", nonce],
                                                       ["async-upload", picture, "O'Brien's boat (1).png", "image/png"]],
                                                       "multipart")


def administer(visit):
    browser = visit.browser
    for page in PAGES:
        visit.look("/blog/wp-admin/" + page)
    for page, changes in SETTINGS.items():
        with visit.action("save " + page):
            visit.open("/blog/wp-admin/" + page)
            visit.submit_form("form[action='options.php']", "#submit", changes)
    with visit.action("save permalinks"):
        visit.open("/blog/wp-admin/options-permalink.php")
        visit.submit_form("form[name=form]", "#submit", {"#permalink_structure": "/index.php/%year%/%postname%/"})
    with visit.action("read with permalinks"):
        visit.open("/blog/")
        visit.open(browser.value("new URL(document.querySelector('.wp-block-post-title a').href).pathname"))
    with visit.action("turn on a plugin, and off"):
        for _ in range(2):
            visit.open("/blog/wp-admin/plugins.php")
            visit.submit_form("tr[data-plugin^=akismet]", ".activate a, .deactivate a")
    with visit.action("new category"):
        visit.open("/blog/wp-admin/edit-tags.php?taxonomy=category")
        for field, text in {"#tag-name": "Rock 'n' Roll & \"more\"",
                            "#tag-description": "select one or two from <b>these</b>; it's = ours"}.items():
            browser.type(field, text)
        browser.click("#submit")
        browser.wait("/Category added|already exists/.test(document.body.innerText)", 20)
    with visit.action("new user"):
        visit.open("/blog/wp-admin/user-new.php")
        visit.submit_form("#createuser", "#createusersub",
                          {"#user_login": "obrien", "#email": "o'brien+news@example.org", "#first_name": "Sinéad",
                                                            "#last_name": "O'Brien",
                                                            "#url": "https://example.org/~obrien/?a=1&b='x'",
                                                            "#pass1": "a'b\"c--d;#1=1 or 2"})
    with visit.action("profile"):
        visit.open("/blog/wp-admin/profile.php")
        visit.submit_form("#your-profile", "#submit",
                          {"#first_name": "Ed",
                           "#description": "Likes 'rock' -- and SQL; ask where/when. <a href=\"https://example.org\">Home</a>"})
    with visit.action("save a style sheet of the theme"):
        visit.open("/blog/wp-admin/theme-editor.php?file=style.css&theme=twentytwentythree")
        browser.value("document.querySelector('#submit').click()")
        browser.wait("/File edited successfully/.test(document.body.innerText)", 20)
    with visit.action("export everything"):
        visit.get("/blog/wp-admin/export.php?download=true&content=all&cat=0&post_author=0&page_start_date=0&submit=Download+Export+File")
    for path in ("/blog/?feed=rss2", "/blog/?feed=comments-rss2", "/blog/wp-sitemap.xml",
                 "/blog/index.php?rest_route=/wp/v2/posts&search=o'brien&orderby=title&order=asc",
                 "/blog/index.php?rest_route=/oembed/1.0/embed&url=http%3A%2F%2Fexample.org%2F%3Fp%3D1%26x%3D'a'&format=xml",
                 "/blog/?author=1", "/blog/?cat=1&orderby=date&order=desc"):
        with visit.action("open " + path):
            visit.get(path, most=404)


def xmlrpc(visit, posts):
    """As apps of telephones write."""
    for post in posts:
        with visit.action(f"by XML-RPC: {post.title}"):
            members = "".join(f"<member><name>{name}</name><value><string>{text}</string></value></member>" for name,
                              text in (
                ("post_title", quoted(post.title)), ("post_content", quoted(post.wordpress())), ("post_status", "draft")))
            values = "".join(f"<param><value><string>{text}</string></value></param>" for text in ("1", USER, PASSWORD))
            text = f'<?xml version="1.0"?><methodCall><methodName>wp.newPost</methodName><params>{values}<param><value><struct>{members}</struct></value></param></params></methodCall>'
            visit.send("/blog/xmlrpc.php", text, "text/xml")


def visit_wordpress(visit, posts, files):
    visit.application = "WordPress"
    install(visit)
    visit.log_in("/blog/wp-login.php", "#user_login", "#user_pass", "#wp-submit", "!!document.querySelector('#wpadminbar')")
    write_posts(visit, posts, by_hand=5)
    xmlrpc(visit, posts)
    upload(visit, files)
    administer(visit)
    attack(visit, posts)
