;;; picture.el --- Take a picture of a session  -*- lexical-binding: t; -*-

;;; Commentary:

;; Run by tests/editors/emacs/picture, on a display that has nothing else.

;;; Code:

(setq native-comp-deferred-compilation nil
      inhibit-startup-echo-area-message (user-login-name)
      vc-handled-backends nil)

(defun kestrel-picture-main ()
  "Debug a launch file, and leave a picture of the frame at a stop."
  (menu-bar-mode -1)
  (tool-bar-mode -1)
  (scroll-bar-mode -1)
  (blink-cursor-mode -1)
  (set-frame-font "DejaVu Sans Mono:pixelsize=17" nil t)
  (modify-frame-parameters nil '((left . 0) (top . 0) (internal-border-width . 0)))
  (set-frame-size nil (- (display-pixel-width) 16) (display-pixel-height) t)
  (add-to-list 'auto-mode-alist '("\\.cl\\'" . c-mode))
  (add-hook 'c-mode-hook #'display-line-numbers-mode)
  (setq-default truncate-lines t)
  (require 'dap-ui)
  (require 'kestrel-dap)
  (setq kestrel-dap-adapter (list (getenv "KESTREL") "dap")
        dap-auto-configure-features '(locals breakpoints repl)
        window-sides-vertical t)
  (set-face-background 'hl-line "grey93")
  (setf (alist-get dap-ui--locals-buffer dap-ui-buffer-configurations nil nil #'equal)
        '((side . right) (slot . 1) (window-width . 0.275)))
  (setf (alist-get dap-ui--breakpoints-buffer dap-ui-buffer-configurations nil nil #'equal)
        '((side . right) (slot . 2) (window-width . 0.275) (window-height . 10)))
  (setf (alist-get dap-ui--repl-buffer dap-ui-buffer-configurations nil nil #'equal)
        '((side . bottom) (slot . 1) (window-height . 7)))
  (dap-auto-configure-mode 1)
  (find-file (expand-file-name "examples/opencl_c/collatz.cl" (getenv "KESTREL_SOURCES")))
  (delete-other-windows)
  (kestrel-picture-break 29 nil)
  (kestrel-picture-break 27 "n < 10")
  (dap-debug (list :type "kestrel" :launchFile "collatz.json"))
  (kestrel-picture-wait #'kestrel-picture-windows)
  (kestrel-picture-open "^.* n: " "^.* all work-items")
  (kestrel-picture-wait (lambda () (kestrel-picture-find "^.* \\[7\\]: ")))
  (kestrel-picture-ask "where n < 10")
  (sit-for 1)
  (select-window (get-buffer-window "collatz.cl"))
  (message nil)
  (redraw-display)
  (sit-for 0.5)
  (call-process "import" nil nil nil "-window" "root" (getenv "KESTREL_PICTURE")))

(defun kestrel-picture-wait (condition)
  "Wait until CONDITION, a function, gives something."
  (let ((limit (+ (float-time) 30)))
    (while (not (funcall condition))
      (when (> (float-time) limit)
        (error "%S never came" condition))
      (sit-for 0.1))))

(defun kestrel-picture-break (line condition)
  "Set a breakpoint at LINE, with a CONDITION unless it is nil."
  (goto-char (point-min))
  (forward-line (1- line))
  (dap-breakpoint-add)
  (when condition
    (plist-put (dap--get-breakpoint-at-point) :condition condition)
    (dap--breakpoints-changed (gethash buffer-file-name (dap--get-breakpoints)))))

(defun kestrel-picture-find (expression)
  "Look for a line of EXPRESSION in the Locals, and return whether it is there."
  (with-current-buffer (get-buffer-create dap-ui--locals-buffer)
    (goto-char (point-min))
    (re-search-forward expression nil t)))

(defun kestrel-picture-windows ()
  "Return whether the windows show the stop."
  (and (get-buffer-window dap-ui--locals-buffer)
       (get-buffer-window dap-ui--breakpoints-buffer)
       (kestrel-picture-find "^.* n: ")))

(defun kestrel-picture-open (&rest expressions)
  "Open the lines of EXPRESSIONS in the Locals, one after the other."
  (with-selected-window (get-buffer-window dap-ui--locals-buffer)
    (goto-char (point-min))
    (dolist (expression expressions)
      (re-search-forward expression)
      (beginning-of-line)
      (treemacs-TAB-action)
      (end-of-line))
    (goto-char (point-min))))

(defun kestrel-picture-ask (command)
  "Give COMMAND to the prompt, and wait for the answer."
  (with-selected-window (get-buffer-window dap-ui--repl-buffer)
    (goto-char (point-max))
    (insert command)
    (comint-send-input)
    (let ((end (point-max)))
      (kestrel-picture-wait (lambda () (> (point-max) end))))))

(defun kestrel-picture-run ()
  "Take the picture and end Emacs, with 1 if there is none."
  (condition-case problem
      (kestrel-picture-main)
    (error
     (princ (format "%s\n" (error-message-string problem)) #'external-debugging-output)
     (kill-emacs 1)))
  (kill-emacs 0))

;; The windows of `dap-ui' are drawn when Emacs is idle, which it isn't before it has started.
(run-with-timer 0.5 nil #'kestrel-picture-run)

;;; picture.el ends here
