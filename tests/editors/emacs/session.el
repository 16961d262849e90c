;;; session.el --- dap-mode debugs kernels  -*- lexical-binding: t; -*-

;;; Commentary:

;; Run by tests/editors/emacs/run.  What is expected is looked up in what the
;; client holds, or asked for by it.

;;; Code:

(require 'ert)
(require 'dap-ui)
(require 'kestrel-dap)

(defvar kestrel-test-sources (getenv "KESTREL_SOURCES"))
(defvar kestrel-test-programs (getenv "KESTREL_PROGRAMS"))

(setq kestrel-dap-adapter (list (getenv "KESTREL") "dap"))
(dap-mode 1)

(defun kestrel-test-example (name)
  "Return the path of the example NAME."
  (expand-file-name name (expand-file-name "examples" kestrel-test-sources)))

(defun kestrel-test-wait (what condition)
  "Wait until CONDITION, a function, gives something, and return that.
After 30 seconds the test fails, for lack of WHAT."
  (let ((limit (+ (float-time) 30))
        result)
    (while (not (setq result (funcall condition)))
      (when (> (float-time) limit)
        (ert-fail (list "There was no" what)))
      (accept-process-output nil 0.05))
    result))

(defun kestrel-test-frame (session)
  "Return the line and the function that the client has of the stop of SESSION."
  (let ((frame (dap--debug-session-active-frame session)))
    (and frame (list (gethash "line" frame) (gethash "name" frame)))))

(defun kestrel-test-stop (session reason)
  "Wait until SESSION stops for REASON, and return the line and the function."
  (kestrel-test-wait (format "stop: %s" reason)
                     (lambda () (dap--debug-session-active-frame session)))
  (should (equal (gethash (dap--debug-session-thread-id session)
                          (dap--debug-session-thread-states session))
                 reason))
  (kestrel-test-frame session))

(defun kestrel-test-children (session reference)
  "Return the variables of SESSION that REFERENCE stands for, by their names."
  (mapcar (lambda (variable) (cons (gethash "name" variable) variable))
          (gethash "variables" (dap-request session "variables" :variablesReference reference))))

(defun kestrel-test-reference (children name)
  "Return what stands for the variables in that of CHILDREN with NAME."
  (gethash "variablesReference" (cdr (assoc name children))))

(defun kestrel-test-locals (session)
  "Return the Locals at the stop of SESSION, by their names."
  (let* ((frame (gethash "id" (dap--debug-session-active-frame session)))
         (scopes (gethash "scopes" (dap-request session "scopes" :frameId frame)))
         (locals (seq-find (lambda (scope) (equal (gethash "name" scope) "Locals")) scopes)))
    (kestrel-test-children session (gethash "variablesReference" locals))))

(defun kestrel-test-local (session name)
  "Return the number that the local variable NAME has at the stop of SESSION."
  (string-to-number (gethash "value" (cdr (assoc name (kestrel-test-locals session))))))

(defun kestrel-test-everywhere (session name)
  "Return the numbers that the local variable NAME has in all work-items of SESSION."
  (let* ((parts (kestrel-test-children
                 session (kestrel-test-reference (kestrel-test-locals session) name)))
         (all (kestrel-test-children session (kestrel-test-reference parts "all work-items"))))
    (mapcar (lambda (value) (string-to-number (gethash "value" (cdr value)))) all)))

(defun kestrel-test-ask (command answer)
  "Give COMMAND to the client's prompt, and wait for ANSWER."
  (save-window-excursion
    (dap-ui-repl)
    (goto-char (point-max))
    (insert command)
    (comint-send-input)
    (kestrel-test-wait answer
                       (lambda ()
                         (with-current-buffer dap-ui--repl-buffer
                           (save-excursion
                             (goto-char (point-max))
                             (search-backward (concat "\n" answer "\n") nil t)))))))

(defun kestrel-test-break (file line condition)
  "Set a breakpoint at LINE of FILE, with a CONDITION unless it is nil."
  (with-current-buffer (find-file-noselect file)
    (goto-char (point-min))
    (forward-line (1- line))
    (dap-breakpoint-add)
    (when condition
      (cl-letf (((symbol-function 'read-string) (lambda (&rest _) condition)))
        (call-interactively #'dap-breakpoint-condition)))))

(defun kestrel-test-start (template properties)
  "Start a session of TEMPLATE with PROPERTIES, and return it."
  (let ((configuration
         (copy-tree (cdr (assoc template dap-debug-template-configurations)))))
    (while properties
      (setq configuration (plist-put configuration (pop properties) (pop properties))))
    (dap-debug configuration)
    (dap--cur-session)))

(defun kestrel-test-end (session)
  "Wait until SESSION has ended, and its adapter with it."
  (kestrel-test-wait "end of the session"
                     (lambda () (eq (dap--debug-session-state session) 'terminated)))
  (kestrel-test-wait "end of the adapter"
                     (lambda () (not (process-live-p (dap--debug-session-proc session))))))

(defmacro kestrel-test-with-session (arguments &rest body)
  "Run BODY with a session that ARGUMENTS start: its name, a template, properties."
  (declare (indent 1))
  `(let ((,(car arguments) (kestrel-test-start ,@(cdr arguments))))
     (unwind-protect (progn ,@body)
       (delete-process (dap--debug-session-proc ,(car arguments)))
       (dap-breakpoint-delete-all))))

(defun kestrel-test-collatz (n steps)
  "Return what becomes of N in so many STEPS."
  (dotimes (_ steps n)
    (setq n (if (cl-evenp n) (/ n 2) (1+ (* 3 n))))))

(ert-deftest kestrel-test-launch-file ()
  "A launch file is stopped at a line by a condition, and taken back."
  (let ((source (kestrel-test-example "opencl_c/collatz.cl")))
    (kestrel-test-break source 27 "n < 10")
    (cl-letf (((symbol-function 'read-file-name)
               (lambda (_prompt _folder _default _must name &rest _) (expand-file-name name))))
      (switch-to-buffer (find-buffer-visiting source))
      (kestrel-test-with-session (session "Kestrel: launch file" nil)
        (kestrel-test-stop session "entry")
        (should (equal (mapcar (lambda (point)
                                 (list (gethash "line" point) (gethash "verified" point)))
                               (gethash source (dap--debug-session-breakpoints session)))
                       '((27 t))))

        (call-interactively #'dap-continue)
        (should (equal (kestrel-test-stop session "breakpoint") '(27 "collatz")))
        (let ((n (kestrel-test-local session "n"))
              (id (kestrel-test-local session "id"))
              (steps (1+ (kestrel-test-local session "count"))))
          (should (< n 10))
          (should (= n (kestrel-test-collatz (+ 24 id) steps)))
          (let ((all (mapcar (lambda (item) (kestrel-test-collatz (+ 24 item) steps))
                             (number-sequence 0 7))))
            (should (equal (kestrel-test-everywhere session "n") all))
            (kestrel-test-ask "where n < 10"
                              (mapconcat #'number-to-string
                                         (seq-filter (lambda (item) (< (nth item all) 10))
                                                     (number-sequence 0 7))
                                         ", ")))

          (call-interactively #'dap-continue)
          (kestrel-test-stop session "breakpoint")
          (should (= (kestrel-test-local session "count") steps))
          (call-interactively #'kestrel-dap-reverse-continue)
          (should (equal (kestrel-test-stop session "breakpoint") '(27 "collatz")))
          (should (= (kestrel-test-local session "n") n))

          (let ((frame (dap--debug-session-active-frame session))
                (other (% (+ id 4) 8)))
            (kestrel-dap-work-item session other)
            (kestrel-test-wait
             "answer for another work-item"
             (lambda () (not (eq (dap--debug-session-active-frame session) frame))))
            (should (= (kestrel-test-local session "id") other))
            (let ((value (kestrel-test-collatz (+ 24 other) steps)))
              (should-not (= value n))
              (should (= (kestrel-test-local session "n") value))
              (dap-ui-locals--refresh)
              (with-current-buffer dap-ui--locals-buffer
                (goto-char (point-min))
                (should (re-search-forward (format "^.* n: %d$" value) nil t)))))

          ;; The line before is one of the loop's, of the same pass.
          (call-interactively #'kestrel-dap-step-back)
          (should (<= 11 (car (kestrel-test-stop session "step")) 25))
          (should (= (kestrel-test-local session "count") (1- steps))))
        (call-interactively #'dap-disconnect)
        (kestrel-test-end session)))))

(ert-deftest kestrel-test-program ()
  "A program has its arguments, variables and folder, and its output is shown."
  (let ((folder (file-name-as-directory (make-temp-file "kestrel" t))))
    (kestrel-test-with-session
        (session "Kestrel: program"
                 (list :program "sh" :args ["-c" "echo \"$0 $WORD ${HOME-unset}\"; pwd" "first"]
                       :env '(("WORD" . "second") ("HOME")) :cwd folder))
      (kestrel-test-end session)
      (should (equal (with-current-buffer (dap--debug-session-output-buffer session)
                       (buffer-string))
                     (format "first second unset\n%s\n" (directory-file-name folder)))))))

(ert-deftest kestrel-test-kernels-of-a-program ()
  "A program's kernel is stopped in a function, by a breakpoint set before it is built."
  (skip-unless (not (string-empty-p kestrel-test-programs)))
  (let* ((folder (make-temp-file "kestrel" t))
         (source (expand-file-name "average.cl" folder)))
    (copy-file (kestrel-test-example "programs/average.cl") source)
    (kestrel-test-break source 7 "sum < 0")
    (kestrel-test-with-session
        (session "Kestrel: program"
                 (list :program (expand-file-name "average" kestrel-test-programs) :cwd folder))
      (should (equal (kestrel-test-stop session "breakpoint") '(7 "sum_of")))
      (dap-up-stack-frame 1)
      (should (equal (cadr (kestrel-test-frame session)) "average"))
      (let ((frame (gethash "id" (dap--debug-session-active-frame session))))
        (should (equal (gethash "result" (dap-request session "evaluate"
                                                      :expression "columns" :frameId frame))
                       "256"))))))

(ert-deftest kestrel-test-refusals ()
  "What the adapter refuses ends the session, with its words."
  (pcase-dolist (`(,properties ,words)
                 '(((:launchFile "nowhere.json") "nowhere\\.json")
                   ((:launchFile "a.json" :program "./a") "either launchFile")
                   ((:program "/" :env (("NAME" . 5))) "NAME has to be a text")))
    (let ((warning-minimum-log-level :emergency))
      (kestrel-test-with-session (session "Kestrel: program" properties)
        (should (string-match-p
                 words
                 (kestrel-test-wait
                  "refusal" (lambda () (dap--debug-session-error-message session)))))))))

;;; session.el ends here
